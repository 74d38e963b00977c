#include "dispatcher.h"

#include <gmock/gmock.h>

#include <string>

namespace {

TEST(ADispatcher, RunsMessagesInPostingOrder) {
    brem::Dispatcher dispatcher;
    std::string order;
    dispatcher.post([&] { order += "a"; });
    dispatcher.post([&] { order += "b"; });
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "ab");
}

} // namespace
