// Values of every frame, gathered into columns whose number stays limited.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tools {

/// A picture over time: one or more rows of values that share a scale.
struct panel {
    enum class kind { map, lines, stack, marks };
    std::string name, title, unit;
    kind shown_as;
    std::vector<std::string> rows; ///< names
    /// On the page a value is a byte b = 0..254 that stands for lowest + b * step.
    double lowest, step;
    double axis_low, axis_high;
};

/// Columns of `stride` frames each, with the least, mean and greatest value of every row. When there
/// are too many, neighbours are merged and the stride doubles: memory depends on the rows alone.
class timeline {
  public:
    explicit timeline(std::vector<panel> panels);

    /// @param frame   not below the last one
    /// @param values  of all panels' rows, one after the other; not-a-number: none
    void add(std::uint64_t frame, std::span<const float> values);

    /// Merges until there are no more columns than that.
    void limit_columns(std::size_t most);

    std::size_t rows() const { return rows_; }
    std::uint64_t stride() const { return stride_; }
    std::size_t columns() const { return cells_.size() / rows_; }

    /// The panels as a JSON array, `data` in base64: per row all columns' means, then, unless the
    /// stride is 1, all least and all greatest values of the panel likewise; 255 where there is none.
    std::string json() const;

  private:
    void merge_pairs();

    static constexpr std::size_t most_columns = 4096;
    /// Of no value all is 0.
    struct cell {
        float low, high, sum;
        std::uint32_t count;

        void add(const cell &other);
    };

    std::vector<panel> panels_;
    std::size_t rows_ = 0;
    std::uint64_t stride_ = 1;
    std::vector<cell> cells_; ///< [column][row]
};

} // namespace tools
