// Where the functions of this library are stricter, or of another form, than the same ones of Windows.
#include <gtest/gtest.h>

#include <string>

#include "platform/com/com.h"

namespace quorvane {
namespace {

TEST(GuidTest, WhatIsNoIdentifierIsRefused)
{
    for (const OLECHAR* text :
         {OLESTR(""), OLESTR("{"), OLESTR("01234567-89AB-CDEF-1032-547698BADCFE"),
          OLESTR("{01234567-89AB-CDEF-1032-547698BADCFE"), OLESTR("{01234567-89AB-CDEF-1032-547698BADCFE}x"),
          OLESTR("{0123456G-89AB-CDEF-1032-547698BADCFE}"),
          OLESTR("{01234567089AB-CDEF-1032-547698BADCFE}")}) {
        CLSID clsid = IID_IStream;
        EXPECT_EQ(CLSIDFromString(text, &clsid), CO_E_CLASSSTRING);
        EXPECT_TRUE(IsEqualGUID(clsid, CLSID_NULL));
    }
}

}  // namespace
}  // namespace quorvane
