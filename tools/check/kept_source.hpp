// Keeps what is read of a source that can be read only once, so that the check has it again.
#pragma once

#include "input/input_file.hpp"
#include "input/source_filter.hpp"

namespace tools {

class kept_source final : public source_filter {
  public:
    /// @throws failure when there is no room for temporary files
    explicit kept_source(std::unique_ptr<pcm_source> source) : source_filter(std::move(source)) {}

    std::span<const std::byte> next_block() override;
    bool seek(std::uint64_t) override { return false; } // everything, once

    /// What was read, from its start; only once.
    std::unique_ptr<pcm_source> again();

  private:
    kept_bytes kept_;
};

} // namespace tools
