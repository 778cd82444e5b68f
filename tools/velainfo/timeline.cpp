#include "velainfo/timeline.hpp"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace tools {
namespace {

std::string base64(const std::vector<std::uint8_t> &bytes) {
    static constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        unsigned three = 0;
        for (std::size_t j = i; j < i + 3; ++j)
            three = three << 8 | (j < bytes.size() ? bytes[j] : 0);
        for (std::size_t j = 0; j < 4; ++j)
            text += i + j > bytes.size() ? '=' : digits[three >> (18 - 6 * j) & 63];
    }
    return text;
}

std::uint8_t byte_of(const panel &p, double value) {
    return static_cast<std::uint8_t>(std::clamp(std::round((value - p.lowest) / p.step), 0.0, 254.0));
}

} // namespace

timeline::timeline(std::vector<panel> panels) : panels_(std::move(panels)) {
    for (const panel &p : panels_)
        rows_ += p.rows.size();
}

void timeline::add(std::uint64_t frame, std::span<const float> values) {
    while (frame / stride_ >= most_columns)
        merge_pairs();
    const auto first = static_cast<std::size_t>(frame / stride_) * rows_;
    cells_.resize(std::max(cells_.size(), first + rows_));
    for (std::size_t i = 0; i < rows_; ++i)
        if (!std::isnan(values[i])) cells_[first + i].add({values[i], values[i], values[i], 1});
}

void timeline::cell::add(const cell &other) {
    if (other.count == 0) return;
    low = count == 0 ? other.low : std::min(low, other.low);
    high = count == 0 ? other.high : std::max(high, other.high);
    sum += other.sum;
    count += other.count;
}

void timeline::limit_columns(std::size_t most) {
    while (columns() > most)
        merge_pairs();
}

void timeline::merge_pairs() {
    std::vector<cell> merged((columns() + 1) / 2 * rows_);
    for (std::size_t i = 0; i < cells_.size(); ++i)
        merged[i / rows_ / 2 * rows_ + i % rows_].add(cells_[i]);
    cells_ = std::move(merged);
    stride_ *= 2;
}

std::string timeline::json() const {
    static constexpr const char *kinds[] = {"map", "lines", "stack", "marks"};
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    std::size_t first = 0;
    for (const panel &p : panels_) {
        std::vector<std::uint8_t> data;
        for (int which = 0; which < (stride_ == 1 ? 1 : 3); ++which) {
            for (std::size_t row = 0; row < p.rows.size(); ++row) {
                for (std::size_t column = 0; column < columns(); ++column) {
                    const cell &c = cells_[column * rows_ + first + row];
                    const float value = which == 0   ? c.sum / static_cast<float>(c.count)
                                        : which == 1 ? c.low
                                                     : c.high;
                    data.push_back(c.count == 0 ? 255 : byte_of(p, static_cast<double>(value)));
                }
            }
        }
        list.push_back({{"name", p.name},
                        {"title", p.title},
                        {"unit", p.unit},
                        {"kind", kinds[static_cast<int>(p.shown_as)]},
                        {"rows", p.rows},
                        {"lowest", p.lowest},
                        {"step", p.step},
                        {"low", p.axis_low},
                        {"high", p.axis_high},
                        {"stride", stride_},
                        {"columns", columns()},
                        {"data", base64(data)}});
        first += p.rows.size();
    }
    return list.dump();
}

} // namespace tools
