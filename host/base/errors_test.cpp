#include "host/base/errors.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

bool IsPassingFailure(HRESULT hr)
{
    try {
        Check(hr, "read", "a file");
    } catch (const HostError& error) {
        return error.IsPassing();
    }
    ADD_FAILURE() << "nothing was thrown";
    return false;
}

TEST(ErrorsTest, WhatTheMachineLacksPassesAndWhatIsDamagedStays)
{
    for (const HRESULT hr :
         {STG_E_TOOMANYOPENFILES, STG_E_INSUFFICIENTMEMORY, STG_E_ACCESSDENIED, E_OUTOFMEMORY})
        EXPECT_TRUE(IsPassingFailure(hr)) << Describe(hr);
    for (const HRESULT hr : {STG_E_DOCFILECORRUPT, STG_E_INVALIDHEADER, STG_E_FILENOTFOUND, E_FAIL})
        EXPECT_FALSE(IsPassingFailure(hr)) << Describe(hr);
    EXPECT_NO_THROW(Check(S_FALSE, "read", "a file"));
}

}  // namespace

}  // namespace quorvane::host
