#include <cstdio>

#include "Utl.h"

int main() {
    int sum = 0;  // the loop's, as long as it runs
    std::unique_ptr<utl::Loop> const loop = utl::Loop::make({});
    if (loop == nullptr) {
        return 1;  // no thread, no descriptors or no memory; the log tells which
    }

    // A request and its reply: back when the loop has done it.
    std::optional<int> const reply = loop->call([&sum] { return sum += 1; });
    if (!reply) {
        return 1;
    }
    std::printf("the sum is %d\n", *reply);

    // Posted: back at once, and done in this order.
    for (int number = 2; number <= 3; ++number) {
        if (!loop->post([&sum, number] { sum += number; })) {
            return 1;
        }
    }

    // The end: what was posted is done before.
    unsigned long const dropped = loop->stop(utl::Rest::RUN).dropped;
    std::printf("the sum is %d\n", sum);
    return dropped == 0 && sum == 6 ? 0 : 1;
}
