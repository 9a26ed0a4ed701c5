#include <gtest/gtest.h>
#include "host/host.h"
TEST(Smoke, Catalogue) {
    reelfx::Module m(reelfx::Module::defaultPath());
    EXPECT_EQ(m.catalogue().size(), 25u);
}
