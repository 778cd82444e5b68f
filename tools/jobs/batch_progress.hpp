// How far a batch is, counted by the threads that encode and shown by the one that waits for them.
#pragma once

#include "jobs/progress.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tools {

class batch_progress {
  public:
    batch_progress(std::size_t files, std::uint64_t bytes) : files_(files), bytes_(bytes) {}

    /// One that a thread is working on. It counts by the part that is done, its sound by the second.
    class file final : public progress_listener {
      public:
        file(batch_progress &all, std::uint64_t bytes) : all_(all), bytes_(bytes) {}

        void sound(int rate, std::optional<std::uint64_t> length) noexcept;
        void update(std::uint64_t samples) override;

        /// The file is over, one way or the other.
        /// @param without_work  it was complete already, so that it tells nothing about the speed
        void end(bool without_work) noexcept;

      private:
        batch_progress &all_;
        std::uint64_t bytes_, counted_bytes_ = 0, counted_samples_ = 0;
        int rate_ = 0;
        std::optional<std::uint64_t> length_;
    };

    /// "12 of 340 files, 3:04:10 done, 812 x real time, 0:14 left"
    std::string line() const;

    /// "3:04:10 in 0:14, 812 x real time"
    std::string totals() const;

  private:
    double seconds() const noexcept { return static_cast<double>(microseconds_) / 1e6; }
    double elapsed() const;
    std::string speed() const;

    using clock = std::chrono::steady_clock;

    std::size_t files_;
    std::uint64_t bytes_;
    std::atomic<std::size_t> files_done_ = 0;
    std::atomic<std::uint64_t> bytes_done_ = 0, bytes_skipped_ = 0;
    std::atomic<std::uint64_t> microseconds_ = 0; ///< of sound
    clock::time_point start_ = clock::now();
};

} // namespace tools
