// A tournament over 64 values: the least one and its place, updated in six steps.
#pragma once

#include <cstdint>

namespace vela {

/// Node i has the children 2i and 2i + 1; leaf p is node 64 + p. Each node names the leaf that wins
/// below it; of equal values the one with the lower place wins, as in a scan that takes strictly
/// smaller values.
class min_tree {
  public:
    /// Values at and above `none` never win against a real one; unused places hold it.
    void fill(double none) noexcept {
        for (double &value : value_)
            value = none;
    }

    void set(int place, double value) noexcept { value_[place] = value; }

    /// After set() of any number of places.
    void build() noexcept {
        for (int p = 0; p < places; ++p)
            winner_[places + p] = static_cast<std::uint8_t>(p);
        for (int node = places - 1; node >= 1; --node)
            play(node);
    }

    /// Changes one place of a built tree.
    void update(int place, double value) noexcept {
        value_[place] = value;
        for (int node = (places + place) / 2; node >= 1; node /= 2)
            play(node);
    }

    int best_place() const noexcept { return winner_[1]; }
    double best_value() const noexcept { return value_[winner_[1]]; }

  private:
    static constexpr int places = 64;

    void play(int node) noexcept {
        const std::uint8_t left = winner_[2 * node], right = winner_[2 * node + 1];
        winner_[node] = value_[right] < value_[left] ? right : left;
    }

    double value_[places];
    std::uint8_t winner_[2 * places];
};

} // namespace vela
