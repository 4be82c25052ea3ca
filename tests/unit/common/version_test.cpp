// SPDX-License-Identifier: MIT
// The version banner.
#include "common/version.h"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(Version, Banner)
{
    testing::internal::CaptureStdout();
    version_banner();
    std::string banner = testing::internal::GetCapturedStdout();
    const std::string fields = "\nProduct:\tZRT\nComponent:\ttarnwick\nVersion:\t2.46 \nBuild date:\tJan  4 2024\n"
                               "Release:\t\nBuild number:\t20240104201356\n";
    EXPECT_EQ(banner.substr(0, fields.size()), fields);
    banner.erase(0, fields.size());
    // One line with the notice and its year.
    EXPECT_EQ(banner.substr(0, 16), "Copyright (c) 20");
    EXPECT_EQ(banner.find('\n'), banner.size() - 1);
}

TEST(Version, String)
{
    EXPECT_STREQ(VERSION_STRING, "2.46");
}

} // namespace
