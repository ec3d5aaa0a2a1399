#include "lib/SharedQueue.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(SharedQueue, ItemsAreLostOrReorderedBetweenTwoThreadsOrTakenFromNowhere)
{
    constexpr int kItems = 20'000;
    SharedQueue<int> queue;
    std::thread producer([&] {
        for (int i = 0; i < kItems; ++i) {
            queue.push(i);
        }
    });
    int expected = 0;
    bool inOrder = true;
    while (expected < kItems) {
        int item = -1;
        if (queue.pop(item)) {
            inOrder = inOrder && item == expected;
            ++expected;
        } else {
            inOrder = inOrder && item == -1;
            std::this_thread::yield();
        }
    }
    producer.join();
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_FALSE(queue.pop(expected));
    EXPECT_EQ(expected, kItems);
}

}  // namespace
