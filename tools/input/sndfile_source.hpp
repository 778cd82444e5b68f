// PCM from any audio file that libsndfile reads.
#pragma once

#include "common/failure.hpp"
#include "input/container.hpp"
#include "input/input_file.hpp"
#include "input/pcm_source.hpp"

#include <exception>
#include <memory>
#include <sndfile.h>
#include <vector>

namespace tools {

/// Of a file that libsndfile does not read; the text is its own sentence.
class unknown_format : public failure {
  public:
    using failure::failure;
};

class sndfile_source final : public pcm_source {
  public:
    /// Another reader of the same file, from a sample on.
    /// @param why_not  set where there is none, for the user, if there is something to say
    using other_reader =
        std::function<std::unique_ptr<pcm_source>(std::uint64_t from, std::string &why_not)>;

    /// @param input  seekable
    /// @param other  asked where libsndfile ends before the length that the file has, or finds an error, in an
    ///               Ogg stream, which may go on behind a page that calls itself the last one, and whose pages
    ///               may count more or fewer samples than their packets have
    /// @throws failure, unknown_format
    sndfile_source(input_file input, length_rule rule, other_reader other = nullptr);

    const pcm_shape &shape() const noexcept override { return shape_; }
    std::optional<std::uint64_t> length() const noexcept override { return length_; }
    std::span<const std::byte> next_block() override;
    std::vector<speaker> speakers() const override { return speakers_; }
    bool seek(std::uint64_t sample) override;
    std::unique_ptr<pcm_source> another() const override;

  private:
    struct view;
    std::int64_t read_file(std::span<std::byte> room);
    void hide_texts(std::uint64_t start, std::span<std::byte> bytes) const;
    std::int64_t read_instants();
    void pack_s24(std::size_t samples) noexcept;
    bool ends_early() const noexcept;
    bool is_known_elsewhere();
    bool goes_on_elsewhere();
    std::span<const std::byte> next_of_rest();
    void check_end() const;

    struct closer {
        void operator()(SNDFILE *file) const noexcept { sf_close(file); }
    };

    input_file input_;
    std::optional<size_field> corrected_;
    std::optional<chunk> wav_sound_; ///< while libsndfile reads the header of a WAV file
    std::int64_t at_ = 0;            ///< where libsndfile reads next
    std::exception_ptr read_error_;  ///< of a read that libsndfile asked for
    std::unique_ptr<SNDFILE, closer> file_;
    pcm_shape shape_;
    std::vector<speaker> speakers_;
    std::optional<std::uint64_t> length_;
    length_rule rule_;
    bool floats_as_integers_;     ///< libsndfile takes the file's floats for integers of 32 bits
    bool exact_length_;           ///< the length is more than an estimate
    bool is_ogg_;                 ///< whose pages were checked, so that no error is damage in them
    int error_ = SF_ERR_NO_ERROR; ///< libsndfile's first one
    bool seeks_exactly_;
    bool strict_ = false; ///< an error ends the reading at once
    std::uint64_t handed_out_ = 0;
    std::vector<std::byte> tail_; ///< of what was handed out, for comparison with the other reader's
    other_reader other_;
    std::string why_not_;
    std::unique_ptr<pcm_source> rest_; ///< by the other reader
    std::vector<std::byte> buffer_;
    std::vector<int> wide_; ///< 24-bit samples as libsndfile gives them, in the upper bits
};

} // namespace tools
