#include "jobs/loudness_pass.hpp"

#include "common/failure.hpp"
#include "input/sample_value.hpp"
#include "loudness/loudness_meter.hpp"
#include "output/unfinished_files.hpp"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <system_error>
#include <thread>

namespace tools {
namespace {

/// Hears a programme of known length part by part, each from a reader that goes there.
class parallel_hearing {
  public:
    parallel_hearing(const pcm_source &source, std::uint64_t length, progress_listener &shown)
        : source_(source), shape_(source.shape()), length_(length),
          part_(programme_meter::part_length(shape_.rate)),
          parts_(static_cast<std::size_t>((length + part_ - 1) / part_)), shown_(shown) {}

    /// Nothing where a reader did not find what it was promised: somebody who reads from the start will
    /// say what is wrong.
    std::optional<loudness_record> hear(int jobs) {
        {
            const signals_held inherited; // the main thread looks after them
            std::vector<std::jthread> others;
            const std::size_t wanted = std::min(static_cast<std::size_t>(jobs), parts_.size());
            try {
                while (others.size() + 1 < wanted)
                    others.emplace_back([this] { work(); });
            } catch (const std::system_error &) {
                // The system has no more; fewer will do.
            }
            work();
        }
        if (failed_) return std::nullopt;
        loudness_record whole;
        for (const auto &part : parts_)
            whole.append(part);
        return whole;
    }

  private:
    void work() noexcept {
        try {
            const auto reader = source_.another();
            for (auto i = next_++; i < parts_.size() && !failed_; i = next_++)
                if (!reader || !hear_part(i, *reader)) failed_ = true;
        } catch (...) {
            failed_ = true;
        }
    }

    bool hear_part(std::size_t index, pcm_source &reader) {
        const std::uint64_t first = index * part_,
                            lead = std::min(first, loudness_meter::lead(shape_.rate));
        const std::uint64_t count = std::min(part_, length_ - first);
        loudness_meter meter(shape_.channels, shape_.rate);
        if (!reader.seek(first - lead)) return false;
        std::vector<float> values;
        const auto channels = static_cast<std::size_t>(shape_.channels);
        for (std::uint64_t at = 0; at < lead + count;) {
            load_samples(reader.next_block(), shape_.format, values);
            if (values.empty()) return false;
            auto samples = std::span<const float>(values).first(
                std::min<std::uint64_t>(values.size(), (lead + count - at) * channels));
            const auto before = samples.first(
                std::min<std::uint64_t>(samples.size(), (lead - std::min(at, lead)) * channels));
            if (!before.empty()) meter.lead_in(before);
            meter.add(samples.subspan(before.size()));
            at += samples.size() / channels;
        }
        parts_[index] = meter.finish(index + 1 == parts_.size());
        tell(count);
        return true;
    }

    void tell(std::uint64_t samples) {
        const std::lock_guard lock(mutex_);
        heard_ += samples;
        shown_.update(heard_);
    }

    const pcm_source &source_;
    pcm_shape shape_;
    std::uint64_t length_, part_;
    std::vector<loudness_record> parts_;
    std::atomic<std::size_t> next_ = 0;
    std::atomic<bool> failed_ = false;

    std::mutex mutex_; ///< of the members below
    std::uint64_t heard_ = 0;
    progress_listener &shown_;
};

} // namespace

loudness_record hear_source(pcm_source &source, int jobs, progress_listener &shown) {
    const auto length = source.length();
    if (jobs > 1 && length && *length > programme_meter::part_length(source.shape().rate))
        if (auto heard = parallel_hearing(source, *length, shown).hear(jobs)) return std::move(*heard);
    programme_meter meter(source.shape().channels, source.shape().rate);
    std::vector<float> values;
    std::uint64_t heard = 0;
    for (auto block = source.next_block(); !block.empty(); block = source.next_block()) {
        load_samples(block, source.shape().format, values);
        meter.add(values);
        heard += values.size() / static_cast<std::size_t>(source.shape().channels);
        shown.update(heard);
    }
    return meter.finish();
}

} // namespace tools
