// What the encoder decides, a line of JSON a frame.
#pragma once

#include "output/output_file.hpp"

#include <cstdint>
#include <memory>

namespace vela {
struct frame_observer;
}

namespace tools {

class trace_file {
  public:
    /// @param file  where the lines go; outlives this
    explicit trace_file(output_file &file);
    ~trace_file();

    /// To be given to the encoder.
    const vela::frame_observer &observer() const noexcept;

    /// @throws failure when memory ran out while encoding; the file itself knows of other errors
    void check() const;

    /// Whether a file is a trace.
    static bool is_trace(const file_view &file) { return begins_with(file, "{\"frame\":"); }

  private:
    struct state;
    std::unique_ptr<state> state_;
};

} // namespace tools
