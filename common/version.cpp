// SPDX-License-Identifier: MIT
// The version banner.
#include "common/version.h"

#include <cstdio>

void version_banner()
{
    std::printf("\nProduct:\t%s\nComponent:\t%s\nVersion:\t%s%c\nBuild date:\t%s\nRelease:\t%s\nBuild number:\t%s\n",
                VERSION_PRODUCT, VERSION_COMPONENT, VERSION_STRING, VERSION_SUFFIX, VERSION_BUILD_DATE, VERSION_RELEASE,
                VERSION_BUILD_NUMBER);
    std::printf("%s\n", VERSION_COPYRIGHT);
}
