// Where the bits of a frame run out, along an axis on which more and more is taken.
#pragma once

#include <algorithm>

namespace vela {

/// Two points of an axis: what the one takes is affordable, what the other takes is not, or is not to be
/// tried.
template <class Point>
struct bracket {
    Point affordable, beyond;
};

/// Narrows a bracket down to `width`: from a hint outwards in growing strides until the limit lies in
/// between, then by halves.
/// @param hint           where to look first; any point will do
/// @param is_affordable  (point): true up to the limit. Of the points for which it was, the last one
///                       asked is the bracket's
template <class Point, class Affordable>
bracket<Point> narrowed(bracket<Point> ends, Point hint, Point stride, Point width,
                        Affordable is_affordable) noexcept {
    bool is_first = true, was_affordable = false, by_halves = false;
    while (ends.beyond - ends.affordable > width) {
        const Point point = std::clamp(hint, ends.affordable + width / 4, ends.beyond - width / 4);
        const bool affordable = is_affordable(point);
        by_halves = by_halves || (!is_first && affordable != was_affordable);
        (affordable ? ends.affordable : ends.beyond) = point;
        const Point room = ends.beyond - ends.affordable;
        const Point way = by_halves ? room / 2 : std::min(stride, room);
        hint = affordable ? point + way : point - way;
        stride = 2 * std::min(stride, room / 2);
        is_first = false;
        was_affordable = affordable;
    }
    return ends;
}

} // namespace vela
