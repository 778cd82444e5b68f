#include "psy/partitions.hpp"

#include <algorithm>

namespace vela {

namespace {

/// Upper edges of the critical bands in Hz; entry n is n bark.
constexpr table<double, 27> band_edges{0,    100,  200,  300,  400,  510,   630,   770,   920,
                                       1080, 1270, 1480, 1720, 2000, 2320,  2700,  3150,  3700,
                                       4400, 5300, 6400, 7700, 9500, 12000, 15500, 25000, 30000};

double bark_of(double hz) noexcept {
    if (hz <= 100) return hz / 100;
    int j = 2;
    while (hz > band_edges[j])
        ++j;
    const double low = band_edges[j - 1];
    return (j - 1) + (hz - low) / (band_edges[j] - low);
}

} // namespace

table<double, partition_count> lay_partitions(partition_lines &lines, int sample_rate) noexcept {
    table<double, partition_count> bark{};
    const auto bark_of_line = [sample_rate](int line) {
        return bark_of(line * (sample_rate * 0.0009765625));
    };
    std::ranges::fill(lines.first_line, line_count);
    lines.first_line[0] = 0;
    int partition = 0;
    double lower = bark_of_line(0), sum = 0;
    for (int line = 0; line < line_count; ++line) {
        const double value = bark_of_line(line);
        if (value - lower > 0.33) {
            bark[partition] = sum / (line - lines.first_line[partition]);
            lines.first_line[++partition] = line;
            lower = value;
            sum = 0;
        }
        sum += value;
        lines.of_line[line] = static_cast<unsigned char>(partition);
    }
    bark[partition] = sum / (line_count - lines.first_line[partition]);
    return bark;
}

} // namespace vela
