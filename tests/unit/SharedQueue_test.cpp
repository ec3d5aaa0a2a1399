#include "lib/SharedQueue.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

TEST(SharedQueue, PopOfAnEmptyQueueTouchesTheOutput)
{
    SharedQueue<std::string> queue;
    std::string out = "as it was";
    EXPECT_FALSE(queue.pop(out));
    EXPECT_EQ(out, "as it was");
    EXPECT_TRUE(queue.empty());
}

TEST(SharedQueue, ItemsAreLostOrReorderedBetweenTwoThreads)
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
            std::this_thread::yield();
        }
    }
    producer.join();
    EXPECT_TRUE(inOrder);
    EXPECT_TRUE(queue.empty());
}

TEST(SharedQueue, CountsWrong)
{
    SharedQueue<int> queue;
    queue.push(1);
    queue.push(2);
    EXPECT_EQ(queue.size(), 2U);
    int out = 0;
    ASSERT_TRUE(queue.pop(out));
    EXPECT_EQ(out, 1);
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_FALSE(queue.empty());
}

}  // namespace
