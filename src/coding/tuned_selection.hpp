// Where scale factors are chosen: selections of those that are sent, and of several the one with the least
// noise. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "psy/tuned_parameters.hpp"
#include "simd/lanes.hpp"

namespace vela::VELA_LEVEL {

/// Parts that may share a scale factor: from the first one up to the one before the end.
struct part_range {
    int first, end;
};
inline constexpr int range_count = 6;
inline constexpr part_range part_ranges[range_count] = {{0, 1}, {1, 2}, {2, 3}, {0, 2}, {1, 3}, {0, 3}};
/// The range of a part's scale factor, by scfsi and part.
inline constexpr int range_of[4][3] = {{0, 1, 2}, {3, 3, 2}, {5, 5, 5}, {0, 4, 4}};
/// In the order in which the selections are tried: of equals the one with the fewest bits wins.
inline constexpr int scfsi_order[4] = {2, 1, 3, 0};

/// Above every noise, and above that.
inline constexpr double most_noise = 1e300, no_choice = 1e301;

/// x where something holds, else 0.
template <class V, class Mask>
VELA_INLINE V where(Mask holds, V x) {
    if constexpr (lanes<V> == 1) {
        // What g++ makes of the other form is a branch, taken at random.
        return from_bits<V>(to_bits(x) & -std::int64_t{holds});
    } else {
        return select(holds, x, splat<V>(0.0));
    }
}

/// Not a number, which is less than nothing, where something holds, else x.
template <class V, class Mask>
VELA_INLINE V unless(Mask holds, V x) {
    if constexpr (lanes<V> == 1) {
        return from_bits<V>(to_bits(x) | -std::int64_t{holds});
    } else if constexpr (lanes<V> <= 4) {
        return from_bits<V>(to_bits(x) | holds);
    } else {
        return select(holds, splat<V>(__builtin_nan("")), x);
    }
}

/// x above 0, else 0.
template <class V>
VELA_INLINE V positive_part(V x) {
    if constexpr (lanes<V> == 1) {
        return where(0.0 < x, x);
    } else {
        return max_of(x, splat<V>(0.0));
    }
}

/// What is greater, where something holds, else `from`; both are not negative.
template <class V, class Mask>
VELA_INLINE V raised(Mask holds, V greater, V from) {
    if constexpr (lanes<V> == 2 || lanes<V> == 4) {
        return max_of(where(holds, greater), from);
    } else {
        return select(holds, greater, from);
    }
}

/// Counts in each lane, below 2^32 and not negative in the end.
template <class V>
struct tally {
    typename bits_of<V>::type count{};

    /// One more, or one less, where something holds.
    template <class Mask>
    VELA_INLINE void add(Mask holds) {
        if constexpr (lanes<V> == 1) {
            count += std::int64_t{holds};
        } else if constexpr (lanes<V> > 4) {
            count = holds ? count + 1 : count; // masks are no numbers there
        } else {
            count -= holds; // -1
        }
    }
    template <class Mask>
    VELA_INLINE void take(Mask holds) {
        if constexpr (lanes<V> == 1) {
            count -= std::int64_t{holds};
        } else {
            count += holds;
        }
    }
    VELA_INLINE V number() const {
        // In the low bits of 2^52.
        return from_bits<V>(count | 0x4330'0000'0000'0000) - splat<V>(4503599627370496.0);
    }
};

/// A value of each range by that of the selections.
template <class V>
VELA_INLINE V in_part(V scfsi, int part, const V (&of_range)[range_count]) {
    V value = of_range[range_of[0][part]];
    for (int s = 1; s < 4; ++s) {
        if (range_of[s][part] != range_of[0][part])
            value = select(scfsi == splat<V>(s), of_range[range_of[s][part]], value);
    }
    return value;
}

template <class V>
struct selection {
    V scfsi, noise;
};

/// A value of all parts with a selection by that of the ranges.
template <class V>
VELA_INLINE V sum_with(int scfsi, const V (&of_range)[range_count]) {
    const int(&of)[3] = range_of[scfsi];
    V sum = of_range[of[0]];
    if (of[1] != of[0]) sum = sum + of_range[of[1]];
    if (of[2] != of[1]) sum = sum + of_range[of[2]];
    return sum;
}

/// Of the selections the one with the least price.
/// @param noise  of the ranges
/// @param price  (scfsi, noise of all parts)
template <class V, class Price>
VELA_INLINE selection<V> cheapest(const V (&noise)[range_count], Price price) {
    selection<V> best{};
    V least{};
    // The first one of all is better than none.
#pragma GCC unroll 4
    for (const int s : scfsi_order) {
        const V sum = sum_with(s, noise);
        // What is not a number becomes the limit.
        const V now = price(s, min_of(sum, splat<V>(most_noise)));
        if (s == scfsi_order[0]) {
            best = {splat<V>(s), sum};
            least = now;
        } else {
            const auto better = now < least * splat<V>(tuned::less);
            best.scfsi = select(better, splat<V>(s), best.scfsi);
            best.noise = select(better, sum, best.noise);
            least = select(better, now, least);
        }
    }
    return best;
}

template <class V>
VELA_INLINE void store_sent(V scfsi, const V (&index)[range_count], int sb, sent_scalefactors &sent) {
    store(sent.scfsi + sb, scfsi);
    for (int part = 0; part < 3; ++part)
        store(sent.index[part] + sb, in_part(scfsi, part, index));
}

/// For each number of scale factors, the selection with the least noise.
/// @param weight, energy  of the parts
template <class V>
VELA_INLINE void store_offers(const V (&noise)[range_count], const V (&index)[range_count],
                              const part_values &weight, const part_values &energy, int sb,
                              scalefactor_offers &offers) {
    // What is not a number becomes the limit.
    const auto noise_with = [&](int s) { return min_of(sum_with(s, noise), splat<V>(most_noise)); };
    const V first = noise_with(1), last = noise_with(3);
    const auto last_share = last < first * splat<V>(tuned::less);
    const V one = noise_with(2), two = select(last_share, last, first), three = noise_with(0);
    V least = splat<V>(0.0);
    for (int part = 0; part < 3; ++part)
        least = least + load<V>(weight[part] + sb) * load<V>(energy[part] + sb);
    least = least * splat<V>(tuned::least_gain);
    const auto gain = [least](V now, V then) { return where(least < now - then, now - then); };
    store(offers.second + sb, gain(one, two));
    store(offers.both + sb, gain(one, three) * splat<V>(0.5));
    store(offers.third + sb, gain(two, three));
    store(offers.scfsi_of_two + sb, select(last_share, splat<V>(3), splat<V>(1)));
    for (int part = 0; part < 3; ++part) {
        const V of_two = select(last_share, index[range_of[3][part]], index[range_of[1][part]]);
        store(offers.index[0][part] + sb, index[range_of[2][part]]);
        store(offers.index[1][part] + sb, of_two);
        store(offers.index[2][part] + sb, index[range_of[0][part]]);
    }
}

/// 2^(n / 3): a scale factor n steps above another one, in its units.
inline constexpr double scale_steps[] = {
    0.5, 0.6299605249474366, 0.7937005259840998, 1.0, 1.2599210498948732, 1.5874010519681994, 2.0};
VELA_INLINE constexpr double scaled_up(int n) {
    return scale_steps[n + 3];
}

/// The loudest index of a range: the smallest.
template <class V>
VELA_INLINE V loudest_of(part_range range, const V (&index)[3]) {
    V loudest = index[range.first];
    for (int part = range.first + 1; part < range.end; ++part)
        loudest = min_of(index[part], loudest);
    return loudest;
}

/// Of the scale factors from `above` steps above the loudest one of a range downwards the one with the
/// least noise, the loudest one of equals.
/// @param noise_of  (i): weighted noise of the range
template <class V, int count, int above, class NoiseOf>
VELA_INLINE void least_noise(V loudest, NoiseOf noise_of, V &noise, V &found) {
    V of[count];
    noise = splat<V>(no_choice);
#pragma GCC unroll 6
    for (int i = 0; i < count; ++i) {
        of[i] = noise_of(i);
        if (i == above) of[i] = min_of(of[i], noise); // if all else fails
        noise = min_of(of[i], noise);
    }
    const V equal = noise + magnitude(noise) * splat<V>(1 - tuned::less);
    V place = splat<V>(0.0); // from the last one upwards
#pragma GCC unroll 6
    for (int i = count - 1; i >= 0; --i)
        place = raised(equal >= of[i], splat<V>(count - i), place);
    found = loudest + (splat<V>(count - above) - place);
}

/// Noise of a part with the scale factors around its own one, from `count` on; before, that of those further
/// above, where it depends on nothing else.
template <class V, int count>
using noise_around = V[2 * count];

/// Takes those out that do not exist: scale factors end at 0 and at 62.
template <class V, int count, int above>
VELA_INLINE void cut_off(V index, noise_around<V, count> &noise) {
#pragma GCC unroll 6
    for (int i = 0; i < count; ++i) {
        V &of = noise[count + i];
        if (i < above) of = unless(index < splat<V>(above - i), of);
        if (i > above) of = unless(splat<V>(62 + above - i) < index, of);
    }
}

/// What a part adds to the noise of a range.
template <class V, int count>
struct part_of_range {
    const noise_around<V, count> &noise;
    V below;                ///< steps of its own scale factor below the range's loudest
    const V *row[lanes<V>]; ///< where the noise of each lane begins; unused with eight lanes

    VELA_INLINE part_of_range(const noise_around<V, count> &around, V steps_below)
        : noise(around), below(steps_below) {
        if constexpr (lanes<V> <= 4) {
            std::int32_t steps[lanes<V>];
            store(steps, truncated(min_of(below, splat<V>(count))));
            for (int l = 0; l < lanes<V>; ++l)
                row[l] = noise + count - steps[l];
        }
    }

    /// With the scale factor `i` steps below the first one.
    VELA_INLINE V at(int i) const {
        if constexpr (lanes<V> <= 2) {
            double lane[lanes<V>];
            for (int l = 0; l < lanes<V>; ++l)
                lane[l] = reinterpret_cast<const double *>(row[l] + i)[l];
            return load<V>(lane);
        } else if constexpr (lanes<V> == 4) {
            // One of two vectors' lanes at the same place is a single instruction.
            const V first = arranged<V>(row[0][i], row[1][i], [](int l) { return l == 1 ? 5 : l; });
            const V last = arranged<V>(row[2][i], row[3][i], [](int l) { return l == 3 ? 7 : l; });
            return arranged<V>(first, last, [](int l) { return l < 2 ? l : 4 + l; });
        } else {
            V here = noise[0];
            for (int j = 0; j <= i; ++j)
                here = select(below == splat<V>(i - j), noise[count + j], here);
            return here;
        }
    }
};

/// The same of a range by the noise of its parts.
/// @param with_far  (i, part, below, noise): the noise of a part, whose own scale factor is so far below, with
///                  that of lanes for which the scale factor is too far above it
template <class V, int count, int above, class WithFar>
VELA_INLINE void least_noise(part_range range, const V (&index)[3],
                             const noise_around<V, count> (&of_part)[3], WithFar with_far, V &noise,
                             V &found) {
    if (range.end == range.first + 1) {
        const V *const own = of_part[range.first] + count;
        least_noise<V, count, above>(
            index[range.first], [own](int i) { return own[i]; }, noise, found);
        return;
    }
    const V loudest = loudest_of(range, index);
    const auto part_at = [&](int part) {
        return part_of_range<V, count>(of_part[part], index[part] - loudest);
    };
    // Of a range of two parts, the last one is there twice.
    const part_of_range<V, count> parts[3] = {part_at(range.first), part_at(range.first + 1),
                                              part_at(range.end - 1)};
    const auto noise_of = [&](int i, int k) {
        return with_far(i, range.first + k, parts[k].below, parts[k].at(i));
    };
    const auto sum_of = [&](int i) {
        const V sum = noise_of(i, 0) + noise_of(i, 1);
        return range.end - range.first == 3 ? sum + noise_of(i, 2) : sum;
    };
    least_noise<V, count, above>(loudest, sum_of, noise, found);
}

} // namespace vela::VELA_LEVEL
