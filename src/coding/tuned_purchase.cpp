#include "coding/tuned_purchase.hpp"

#include "coding/frame_bits.hpp"

namespace vela {

/// The best step of a buyer that there is room for.
tuned_purchase::step tuned_purchase::next(int i, int room) const noexcept {
    if (buyers_[i].sent == 3) return {0, 0};
    if (buyers_[i].sent == 2) return {third_[i], 3};
    if (room > 1 && both_[i] > second_[i]) return {both_[i], 3};
    return {second_[i], 2};
}

/// Takes every step that gains more than a price: what next() finds, without branches.
int tuned_purchase::take_steps(double price) noexcept {
    int sent = 0;
    for (int i = 0; i < count_; ++i) {
        const bool at_once = both_[i] > second_[i];
        const bool two = !at_once & (second_[i] > price);
        const bool three = (at_once & (both_[i] > price)) | (two & (third_[i] > price));
        buyers_[i].sent = 1 + int{two | three} + int{three};
        sent += buyers_[i].sent;
    }
    return sent;
}

/// Goes on from there, the best step first, as long as steps gain more than a price.
int tuned_purchase::take_single_steps(double price, int room) noexcept {
    step steps[most_buyers];
    int who[most_buyers]{}, count = 0;
    for (int i = 0; i < count_ && room > 0; ++i) {
        steps[count] = next(i, room);
        who[count] = i;
        count += int{steps[count].gain > price};
    }
    while (room > 0 && count > 0) {
        int best = 0;
        for (int i = 1; i < count; ++i)
            best = steps[i].gain > steps[best].gain ? i : best;
        if (!(steps[best].gain > price)) break;
        int &sent = buyers_[who[best]].sent;
        const int more = steps[best].to - sent;
        if (more <= room) {
            sent += more;
            room -= more;
        }
        steps[best] = next(who[best], room);
    }
    return room;
}

int tuned_purchase::buy(const scalefactor_offers (&offers)[2], int left, double slope) noexcept {
    if (count_ == 0) return left;
    int most = left / scalefactor_bits;
    for (int i = 0; i < count_; ++i) {
        const auto &[ch, sb, sent] = buyers_[i];
        second_[i] = offers[ch].second[sb];
        both_[i] = offers[ch].both[sb];
        third_[i] = offers[ch].third[sb];
        most += sent;
    }
    // If all steps fit that gain more than some price, they are the best ones, in whatever order.
    double price = slope * scalefactor_bits, dearer_than = 0;
    int sent = take_steps(price);
    for (double growth = 2; sent > most; growth *= growth) {
        dearer_than = price;
        price *= growth;
        sent = take_steps(price);
    }
    // If not, they are those that come into question, but for the last bits.
    if (dearer_than == 0) {
        const int more = take_steps(price / 2);
        if (more > most) {
            dearer_than = price / 2;
            take_steps(price);
        } else {
            sent = more;
        }
    }
    int room = take_single_steps(dearer_than, most - sent);
    if (dearer_than > 0) room = take_single_steps(0, room);
    return left % scalefactor_bits + scalefactor_bits * room;
}

} // namespace vela
