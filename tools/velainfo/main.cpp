// velainfo: the order of a run, from the command line to the exit code.

#include "common/failure.hpp"
#include "common/printable.hpp"
#include "output/output_target.hpp"
#include "output/unfinished_files.hpp"
#include "velainfo/inspect.hpp"
#include "velainfo/options.hpp"

#include <cstdio>
#include <new>

namespace tools {
namespace {

/// Where the shared codes mean something else than velainfo's.
int exit_status(exit_code code) {
    constexpr int cannot_be_written = 4;
    return code == exit_code::output ? cannot_be_written : static_cast<int>(code);
}

int run_safely(int argc, char **argv) {
    exit_code code = exit_code::internal;
    try {
        const auto wanted = read_info_options(argc, argv);
        return wanted ? inspect(*wanted) : 0;
    } catch (const failure &error) {
        // Who closed the pipe knows.
        if (*error.what() != '\0')
            std::fprintf(stderr, "velainfo: %s\n", printable(error.what()).c_str());
        code = error.code();
    } catch (const std::bad_alloc &) {
        std::fprintf(stderr, "velainfo: memory is out\n");
    } catch (const std::exception &error) {
        std::fprintf(stderr, "velainfo: internal error: %s\n", error.what());
    }
    return exit_status(code);
}

} // namespace
} // namespace tools

int main(int argc, char **argv) {
    tools::occupy_closed_descriptors();
    tools::catch_signals();
    return tools::run_safely(argc, argv);
}
