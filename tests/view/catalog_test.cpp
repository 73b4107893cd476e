#include "catalog.h"

#include <gtest/gtest.h>

namespace {

Look look_with(const std::string& failure) {
    Look look;
    look.failure = failure;
    return look;
}

TEST(KnownFile, KeepsWhatALookFoundWhenAGlanceEndsLater) {
    KnownFile file;
    file.learn(look_with("glance"), false);
    EXPECT_EQ(file.look->failure, "glance");
    EXPECT_FALSE(file.whole);
    file.learn(look_with("look"), true);
    file.learn(look_with("glance"), false);
    EXPECT_EQ(file.look->failure, "look");
    EXPECT_TRUE(file.whole);
    file.learn(look_with("another"), true);
    EXPECT_EQ(file.look->failure, "another");
}

}  // namespace
