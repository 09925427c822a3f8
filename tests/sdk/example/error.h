// error.h: failures with a text.
#ifndef SHARING_HOST_ERROR_H_
#define SHARING_HOST_ERROR_H_

#include <cstdio>
#include <stdexcept>
#include <string>

#include "quorvane3/com.h"

// Throws a failure on, with what was tried and what the engine says of it.
inline void Check(HRESULT hr, const std::string& what)
{
    if (SUCCEEDED(hr))
        return;
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
    const std::string text = quorvane::ToUtf8(quorvane::TakeErrorDescription().View());
    throw std::runtime_error("cannot " + what + ": " + (text.empty() ? code : text + " (" + code + ")"));
}

#endif  // SHARING_HOST_ERROR_H_
