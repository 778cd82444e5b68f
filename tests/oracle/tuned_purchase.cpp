// The purchase of scale factors as docs/sound.md words it.
#include "oracle/tuned.hpp"

namespace oracle {

void buy(std::vector<buyer> &buyers, int &left) {
    for (buyer &b : buyers) {
        left += 6 * (b.count - 1);
        b.count = 1;
    }
    while (true) {
        double best = 0;
        buyer *who = nullptr;
        int where = 0;
        for (buyer &b : buyers) {
            for (int n = b.count + 1; n <= 3; ++n) {
                const double less = b.noise[b.count] - b.noise[n], slope = less / (n - b.count);
                if (6 * (n - b.count) > left || less <= 1e-12 * b.energy || slope <= best) continue;
                best = slope;
                who = &b;
                where = n;
            }
        }
        if (who == nullptr) return;
        left -= 6 * (where - who->count);
        who->count = where;
    }
}

} // namespace oracle
