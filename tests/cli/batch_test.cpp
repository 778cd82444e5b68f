// Many files at a time: which ones, where to, what fails, what is left to do, and what the report says.
#include "workbench.hpp"

#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <unistd.h>

namespace velaenc_test {
namespace {

class batch_test : public workbench {
  protected:
    batch_test() {
        shell("mkdir -p in/a/b");
        unsigned seed = 0;
        for (const std::string name : {"in/one.wav", "in/a/two.wav", "in/a/b/three", "in/a/b/four.wav"})
            put(name, wav(pcm(noise(9600, ++seed)), 2, 48000));
        put("in/a/empty", "");
        put("in/a/letter", std::string("\xFF\xFEL\0e\0t\0", 8)); // begins as a frame might
        shell("ln -s a in/link; ln -s nowhere in/dangling; "
              "touch -d '1 hour ago' $(find in -type f)");
    }

    /// Names below a folder, sorted and with a blank between them.
    std::string files_in(const std::string &folder) const {
        return shell("cd " + folder + " && find . -type f | LC_ALL=C sort | tr '\\n' ' '").out;
    }

    outcome batch(const std::string &arguments, int status = 0, const std::string &words = "") const {
        return run("velaenc --output-dir out " + arguments, status, words);
    }

    std::vector<nlohmann::json> report() const {
        std::vector<nlohmann::json> lines;
        std::istringstream text(get("report"));
        for (std::string line; std::getline(text, line);)
            lines.push_back(nlohmann::json::parse(line));
        return lines;
    }

    static constexpr const char *all = "./a/b/four.mp2 ./a/b/three.mp2 ./a/two.mp2 ./one.mp2 ";
};

TEST_F(batch_test, folders_lists_and_patterns_give_the_names_that_they_promise) {
    put("list", "in/a/two.wav\nin/one.wav\n");
    const struct {
        std::string arguments, files;
    } cases[] = {
        {"-r in", all},
        {"-r in/ in/one.wav ./in", all},
        {"in/one.wav in/a/two.wav", "./one.mp2 ./two.mp2 "},
        {"--layer 1 in/one.wav", "./one.mp1 "},
        {"--files-from list in/a/two.wav", "./in/a/two.mp2 ./in/one.mp2 ./two.mp2 "},
        {"--files-from list --base in/a", "./one.mp2 ./two.mp2 "},
        {"--files-from - < list", "./in/a/two.mp2 ./in/one.mp2 "},
        {"-0 --files-from <(printf 'in/a/two.wav\\0in/one.wav\\0')", "./in/a/two.mp2 ./in/one.mp2 "},
        {"-r in/a --name '{stem}_{name}-{dir}/x.{ext}'",
         "./four_four.wav-b/x.mp2 ./three_three-b/x.mp2 ./two_two.wav-/x.mp2 "},
    };
    for (const auto &[arguments, files] : cases) {
        batch(arguments);
        EXPECT_EQ(files_in("out"), files) << arguments;
        shell("rm -r out");
    }
    // Its own output is no input, wherever the folder lies.
    run("velaenc --output-dir in/out -r in; velaenc --output-dir in/out -r in", 0,
        "4 files: 4 encoded, 0 failed, 3 others left out, 1 linked folder not entered; ");
    EXPECT_EQ(files_in("in/out"), all);
}

TEST_F(batch_test, nothing_is_encoded_when_the_batch_makes_no_sense) {
    shell("cp in/one.wav in/one.flac; cp in/one.wav in/one.mp2");
    const struct {
        std::string arguments, words;
    } cases[] = {
        {"--output-dir out in/one.wav in/one.flac",
         "in/one.wav and in/one.flac would both become out/one.mp2"},
        {"--output-dir in in/one.mp2", "in/one.mp2 is an input"},
        {"--output-dir out", "--files-from"},
        {"--output-dir out in/one.wav -", "standard input"},
        {"--output-dir out --name '{folder}' in/one.wav", "{dir} {stem} {name} {ext}"},
        {"--output-dir out --name ../x in/one.wav", "below --output-dir"},
        {"--output-dir out --shard 3/2 in/one.wav", "I/N"},
        {"--output-dir out --shard 0/2 in/one.wav", "I/N"},
        {"--output-dir out -r in --raw --rate 48000 --channels 2 --format s16", "--recursive"},
        {"--output-dir out in/one.wav --timestamps x", "--timestamps"},
        {"--resume in/one.wav", "--output-dir"},
        {"in/one.wav out more", "--output-dir DIR"},
        {"-r in --output-dir in/.", "name another --output-dir"},
    };
    for (const auto &[arguments, words] : cases) {
        run("velaenc " + arguments, 1, words);
        EXPECT_EQ(shell("ls out in/*.mp1").out, "") << arguments;
    }
}

TEST_F(batch_test, what_is_not_encoded_is_named_and_everything_else_is_encoded) {
    const struct {
        std::string name, bytes, why;
    } bad[] = {
        {"22.wav", wav(pcm(noise(9600)), 12, 48000), "the input has 12 channels"},
        {"cut.wav", get("in/one.wav").substr(0, 1000), "is truncated"},
        {"empty.flac", "", "is empty"},
        {"film.MKV", "\x1A\x45\xDF\xA3", "cannot read in/bad/film.MKV"},
        {"riff", "RIFFsizeWAVEfmt ", "cannot read in/bad/riff"},
        {"song.m4a", std::string(3, '\0') + " ftypM4A ", "cannot read in/bad/song.m4a"},
        {"zeroed.wav", std::string(10000, '\0'), "cannot read in/bad/zeroed.wav"},
    };
    shell("mkdir in/bad in/good in/none; ln -s nowhere in/bad/gone.wav; mkfifo in/bad/pipe.wav; cp "
          "in/one.wav in/good/..ü.wav;"
          "cp in/one.wav $'in/good/\\xFF.wav'; ffmpeg -v error -i in/one.wav -c:a pcm_s24le -f caf - | "
          "cat > "
          "in/good/caf");
    for (const auto &[name, bytes, why] : bad)
        put("in/bad/" + name, bytes);
    const auto result = batch("-r in in/none --report report --preset dvd", 6,
                              "17 files: 7 encoded, 10 failed, 3 others left out, 1 linked");
    EXPECT_EQ(files_in("out"), "./a/b/four.mp2 ./a/b/three.mp2 ./a/two.mp2 ./good/..ü.mp2 "
                               "./good/caf.mp2 ./good/\xFF.mp2 ./one.mp2 ");
    const auto table = result.err.find("10 files failed:\n");
    ASSERT_NE(table, std::string::npos) << result.err;
    int highest = 0;
    for (const int each : noise(9600, 1))
        highest = std::max(highest, std::abs(each));
    const double peak = std::round(2000 * std::log10(highest / 32768.0)) / 100;
    std::map<std::string, std::string> errors;
    for (const auto &line : report()) {
        const std::string input = line["input"], status = line["status"];
        EXPECT_EQ(line["options"], nlohmann::json({"--preset=dvd"}));
        if (!line["error"].is_null()) {
            EXPECT_EQ(status, "failed");
            errors[input] = line["error"];
            EXPECT_NE(result.err.find("\n  " + input + "  ", table), std::string::npos)
                << input << result.err;
            continue;
        }
        EXPECT_EQ(status, "encoded");
        const std::string output = line["output"], digest = line["sha256"];
        EXPECT_EQ(line.contains("output_hex"), input.find("good/\xEF\xBF\xBD") != std::string::npos)
            << line;
        const std::string named = line.contains("output_hex") ? "out/good/\xFF.mp2" : output;
        EXPECT_EQ(line["frames"], frames_of(get(named)).size());
        EXPECT_EQ(line["seconds"], 0.1);
        EXPECT_EQ(line["clipped_samples"], 0);
        EXPECT_EQ(line["source"],
                  nlohmann::json(
                      {{"rate", 48000}, {"channels", 2}, {"bits", input.ends_with("caf") ? 24 : 16}}));
        EXPECT_TRUE(input.starts_with("in/a/") || line["peak_dbfs"] == peak) << line;
        EXPECT_EQ(shell("sha256sum < " + named).out, digest + "  -\n");
        EXPECT_EQ(line["settings"].dump(),
                  R"({"copyright":0,"crc":true,"emphasis":"none","kbps":224,"layer":2,)"
                  R"("mode":"stereo","original":0,"private":0,"rate":48000})");
    }
    EXPECT_EQ(errors.size(), 10u);
    for (const char *words :
         {"velaenc: in/bad/22.wav: the input has 12", "velaenc: in/bad/empty.flac is empty (0",
          "\n  in/bad/22.wav      the input has 12", "\n  in/bad/empty.flac  is empty (0"})
        EXPECT_NE(result.err.find(words), std::string::npos) << words << result.err;
    for (const auto &[name, bytes, why] : bad)
        EXPECT_NE(errors["in/bad/" + name].find(why), std::string::npos)
            << name << ": " << errors["in/bad/" + name];
    EXPECT_NE(errors["in/bad/gone.wav"].find("No such file"), std::string::npos);
    EXPECT_NE(errors["in/bad/pipe.wav"].find("is a pipe"), std::string::npos);
    EXPECT_NE(errors["in/none"].find("no sound file below"), std::string::npos);
    EXPECT_EQ(shell("grep -c ü.mp2 report").out, "1\n");
    EXPECT_EQ(shell("grep -o '\"input_hex\":\"[^\"]*' report").out,
              "\"input_hex\":\"696e2f676f6f642fff2e776176\n");
    batch("-r in in/none --report report --preset dvd --resume", 6,
          "0 encoded, 7 complete before, 10 failed, ");
    EXPECT_EQ(report().size(), 27u); // what was complete has its line
}

TEST_F(batch_test, what_stops_a_batch_and_what_does_not) {
    shell("mkdir none out; : > out/a; echo '[\"a\"]' > json");
    batch("-r in", 6, "cannot create the folder out/a: ");
    EXPECT_EQ(files_in("out"), "./a ./one.mp2 ");
    batch("in/one.wav --preset vcd --to-rate 48000 --bitrate 192", 6, "; A006:");
    batch("in/one.wav --report /dev/full", 3, "report /dev/full: No space");
    batch("in/one.wav --report in/one.wav", 3, "in/one.wav is no report");
    batch("in/one.wav --report json", 3, "json is no report");
    run("velaenc --output-dir out in/one.wav --report lines 2>&-; grep -v '^{' lines", 1);
    batch("-r none", 2, "none has no sound file below it");
    batch("--files-from none", 2);
    batch("in/one.wav", 0, "1 file: 1 encoded, 0 failed; ");
    // As nobody: a folder that cannot be read is one entry.
    if (::geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    const auto result = shell(
        "cp $(command -v velaenc) .; chmod 755 .; chmod 700 in/a/b; chmod 777 none;"
        "setpriv --reuid 65534 --clear-groups ./velaenc -r in --output-dir none --report -; echo $?");
    EXPECT_NE(result.out.find(R"({"input":"in/a/b","output":null,"options":[],"status":"failed")"),
              std::string::npos)
        << result.out << result.err;
    EXPECT_TRUE(result.out.ends_with("\n6\n")) << result.out;
    EXPECT_EQ(files_in("none"), "./a/two.mp2 ./one.mp2 ");
}

TEST_F(batch_test, resume_encodes_exactly_what_is_not_there_as_it_should_be) {
    batch("-r in");
    const struct {
        std::string damage, arguments;
        int encoded;
    } cases[] = {
        {"", "", 0},
        {"rm out/one.mp2", "", 1},
        {"touch in/one.wav", "", 1},
        {"truncate -s -672 out/one.mp2", "", 1},
        {"truncate -s 0 out/one.mp2", "", 1},
        {"head -c 672 out/a/two.mp2 >> out/one.mp2", "", 1},
        {"printf 'xxxx' | dd of=out/one.mp2 conv=notrunc bs=1 seek=2688 status=none", "", 1},
        {"", "--bitrate 192", 4},
        {"", "--mode joint --bitrate 64", 4},
        {"", "--mode joint --bitrate 64", 0},
        {"", "--mode joint --bitrate 256", 4}, // enough for plain stereo
        {"", "--mode joint --bitrate 256", 0},
        {"", "--crc", 4},
        {"", "--crc --report report", 0}, // and the report has them all
        {"", "--crc --report report --pts-offset 1", 4},
        {"touch -r in/one.wav out/one.mp2", "--crc", 1}, // not newer
        {"", "--to-rate 44100", 4},
        {"", "--to-rate 44100", 0},
        {"truncate -s -1 out/one.mp2", "--to-rate 44100", 1},
        {"", "--emphasis j17", 4},
        {"", "--emphasis j17 --private 1", 4},
        {"", "--emphasis j17 --private 1 --copyright 1", 4},
        {"", "--emphasis j17 --private 1 --copyright 1 --original 1", 4},
    };
    for (const auto &[damage, arguments, encoded] : cases) {
        shell("touch -d '1 minute ago' $(find out -type f); " + damage);
        SCOPED_TRACE(damage);
        batch("-r in --resume " + arguments, 0,
              ": " + std::to_string(encoded) + " encoded, " + std::to_string(4 - encoded)
                  + " complete before, 0 failed");
        EXPECT_EQ(files_in("out"), all);
        if (damage == "touch in/one.wav") shell("touch -d '1 hour ago' in/one.wav");
    }
    EXPECT_EQ(report().size(), 8u);
    const std::string note = " complete files without a line of an earlier --report: ";
    batch("-r in --resume --emphasis j17 --private 1 --copyright 1 --original 1 --gain 1", 0,
          "4" + note);
    put("short.wav", wav(pcm(noise(2000)), 2, 48000)); // one frame
    shell("touch -d '1 hour ago' short.wav");
    batch("short.wav");
    batch("short.wav --resume", 0, "1 complete before");
    // A line of no use, and one that is nested deeper than any stack.
    shell("cp report deep; perl -e 'print \"{\\\"output\\\":\", \"[\" x 200000, \"]\" x 200000, "
          "\"}\\n\"' >> deep");
    batch("-r in --resume --crc --pts-offset 1 --report deep", 0, "4 encoded");
    const auto known = batch("-r in --resume --crc --pts-offset 1 --report deep", 0, "4 complete");
    EXPECT_EQ(known.err.find(note), std::string::npos) << known.err;
}

TEST_F(batch_test, a_killed_batch_goes_on_and_ends_with_the_streams_of_an_unbroken_one) {
    for (int i = 0; i < 30; ++i)
        put("in/" + std::to_string(i) + ".wav", wav(pcm(noise(200000, 100 + i)), 2, 48000));
    run("touch -d '1 hour ago' $(find in -type f); velaenc --output-dir whole -r in -j 1 --gain 12", 0,
        " more kinds of notes");
    run("set -m; velaenc --output-dir out -r in --gain 12 --report report & "
        "until [ -s report ]; do sleep 0.01; done; kill -9 $!; wait $!",
        137);
    const auto resumed = batch("-r in --gain 12 --report report --resume -j 7");
    EXPECT_EQ(shell("diff -r out whole").out, "");
    EXPECT_EQ(resumed.err.find(" 0 complete before"), std::string::npos) << resumed.err;
}

TEST_F(batch_test, resume_takes_away_what_a_killed_run_left_and_nothing_that_is_still_written) {
    run("mkdir -p out; : > out/.velaenc-1-left.tmp; : > out/.velaenc-own; mkfifo fifo; velaenc -q - "
        "out/live.mp2 < fifo &"
        "exec 7> fifo; cat in/one.wav >&7; until [ $(ls -A out | grep -c tmp) = 2 ]; do :; done;"
        "velaenc -q --output-dir out --resume in/one.wav && exec 7>&- && wait $!");
    EXPECT_EQ(files_in("out"), "./.velaenc-own ./live.mp2 ./one.mp2 ");
}

TEST_F(batch_test, shards_share_the_files_out_and_write_one_report_together) {
    for (int i = 0; i < 60; ++i)
        put("in/" + std::to_string(i) + ".wav", wav(pcm(noise(2000, i)), 2, 48000));
    put("report", "{\"input\":\"cut");
    shell("for i in 1 2 3 4; do velaenc --quiet --output-dir out -r in --report report --shard $i/4 & "
          "done; wait; velaenc --quiet --output-dir whole -r in -j 1 --report order; sed -i 1d report");
    run("grep -o '\"input\":[^,]*' order | LC_ALL=C sort -c");
    EXPECT_EQ(shell("diff -r out whole").out, "");
    std::set<std::string> outputs;
    for (const auto &line : report())
        outputs.insert(line["output"]);
    EXPECT_EQ(outputs.size(), 64u);
    EXPECT_EQ(report().size(), 64u);
}

TEST_F(batch_test, threads_without_a_file_take_segments_of_a_long_one) {
    put("long.wav", wav(pcm(noise(2 * 48000 * 20)), 2, 48000));
    for (const std::string with : {"long.wav ", "long.wav --to-rate 44100 "}) {
        batch(with + "-j 4");
        EXPECT_TRUE(get("out/long.mp2") == encoded(with + "-j 1")) << with;
    }
    batch("-r in --mode mono -j 1", 0, " and 3 more)");
}

TEST_F(batch_test, a_terminal_shows_one_line_for_all_files) {
    put("long.wav", wav(pcm(noise(960000)), 2, 48000));
    const auto shown =
        shell("mkfifo pipe; (head -c 960044; sleep 1; cat) < long.wav > pipe & "
              "TERM=xterm script -qec 'velaenc --preset dvb --output-dir out -r in pipe' /dev/null")
            .out;
    for (const char *words : {"4 of 5 files, 0:05 done, ", " x real time, 0:00 left",
                              "\r\033[Kvelaenc: 5 files: 5 encoded, 0 failed, "})
        EXPECT_NE(shown.find(words), std::string::npos) << words << shown;
    EXPECT_TRUE(std::regex_search(shown, std::regex("; 0:10 in 0:0\\d, [\\d.]+ x real time"))) << shown;
    // Half the sound in a second: as long again.
    const auto single = shell("(head -c 960044; sleep 1; cat) < long.wav > pipe & "
                              "TERM=xterm script -qec 'velaenc pipe out.mp2' /dev/null")
                            .out;
    EXPECT_TRUE(std::regex_search(single, std::regex("0:05 of 0:10, \\d x real time, 0:0[12] left")))
        << single;
}

} // namespace
} // namespace velaenc_test
