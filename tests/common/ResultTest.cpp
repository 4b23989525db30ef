#include "platform/common/Error.h"

#include <gtest/gtest.h>

using mv::Error;
using mv::ErrorKind;
using mv::Result;
using mv::Status;

TEST(Result, CarriesValueOrErrorWithItsKind)
{
    Result<int> good = 42;
    ASSERT_TRUE(good.ok());
    EXPECT_EQ(*good, 42);

    Result<int> bad = Error::temporary("database is locked", 5);
    ASSERT_FALSE(bad.ok());
    EXPECT_EQ(bad.error().kind, ErrorKind::Temporary);
    EXPECT_EQ(bad.error().code, 5);

    Status done;
    EXPECT_TRUE(done.ok());
    Status failed = Error::notFound("no such folder");
    EXPECT_EQ(failed.error().kind, ErrorKind::NotFound);
}
