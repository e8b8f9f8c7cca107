#include "frame/SysRoot.h"

#include <gtest/gtest.h>

#include <cstdlib>

using Velmora::SysRoot;

TEST(SysRoot, PrefixesFixedPathsOnlyWhenSet)
{
    unsetenv("VELMORA_ROOT");
    EXPECT_EQ(SysRoot::path("/tmp/aam1.pem"), "/tmp/aam1.pem");
    setenv("VELMORA_ROOT", "", 1);
    EXPECT_EQ(SysRoot::path("/root"), "/root");
    setenv("VELMORA_ROOT", "/srv/box/", 1);
    EXPECT_EQ(SysRoot::path("/root"), "/srv/box/root");
    setenv("VELMORA_ROOT", "/srv/box", 1);
    EXPECT_EQ(SysRoot::path("/usr/local/etc/velmora/x.crt"), "/srv/box/usr/local/etc/velmora/x.crt");
    unsetenv("VELMORA_ROOT");
}
