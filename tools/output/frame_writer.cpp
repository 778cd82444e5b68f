#include "output/frame_writer.hpp"

namespace tools {

bool frame_writer::write(frame_buffer &from) {
    for (const frame_info &frame : from.frames()) {
        if (list_ != nullptr) list_->add(frames_, bytes_, frame.length, frame.time_stamp);
        bytes_ += frame.length;
        ++frames_;
    }
    const bool works = file_.write(std::as_bytes(from.bytes())) == 0;
    if (list_ != nullptr) list_->flush();
    from.clear();
    return works;
}

} // namespace tools
