#include "host/base/errors.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <system_error>

#include "quorvane3/mapi.h"

namespace quorvane::host {

namespace {

struct CodeText {
    HRESULT code;
    const char* text;
};

constexpr CodeText kCodeTexts[] = {
    {E_FAIL, "the operation failed"},
    {E_OUTOFMEMORY, "out of memory"},
    {E_INVALIDARG, "an argument is not valid"},
    {E_ACCESSDENIED, "access denied"},
    {E_NOINTERFACE, "the object is of another kind"},
    {E_POINTER, "something needed is missing"},
    {DISP_E_MEMBERNOTFOUND, "no such member"},
    {MAPI_E_NO_SUPPORT, "not supported"},
    {MAPI_E_NOT_FOUND, "not found"},
    {MAPI_E_LOGON_FAILED, "the logon failed"},
    {MAPI_E_UNKNOWN_ENTRYID, "the entry identifier is of another store"},
    {MAPI_E_INVALID_ENTRYID, "the entry identifier is not valid"},
    {MAPI_E_OBJECT_DELETED, "the object was deleted"},
    {MAPI_E_OBJECT_CHANGED, "the object was changed meanwhile"},
    {MAPI_E_COLLISION, "the name is taken"},
    {MAPI_E_CORRUPT_STORE, "the message store is damaged"},
    {MAPI_E_CORRUPT_DATA, "the data is damaged"},
    {MAPI_E_NOT_ENOUGH_DISK, "the disk is full"},
    {MAPI_E_DISK_ERROR, "the disk failed"},
    {MAPI_E_VERSION, "the file is of a version that this program doesn't know"},
    {MAPI_E_UNCONFIGURED, "the profile is not configured"},
    {STG_E_FILENOTFOUND, "no such file"},
    {STG_E_PATHNOTFOUND, "no such directory"},
    {STG_E_ACCESSDENIED, "access denied"},
    {STG_E_SHAREVIOLATION, "another program has the file open"},
    {STG_E_FILEALREADYEXISTS, "not a compound file"},
    {STG_E_INVALIDHEADER, "not a compound file"},
    {STG_E_DOCFILECORRUPT, "the compound file is damaged"},
    {STG_E_OLDFORMAT, "the compound file is of an unknown version"},
    {STG_E_READFAULT, "reading failed or the file ends too early"},
    {STG_E_WRITEFAULT, "writing failed"},
    {STG_E_MEDIUMFULL, "the disk is full"},
    {STG_E_INSUFFICIENTMEMORY, "out of memory"},
};

constexpr HRESULT kPassing[] = {E_OUTOFMEMORY,          STG_E_INSUFFICIENTMEMORY, STG_E_TOOMANYOPENFILES,
                                STG_E_ACCESSDENIED,     STG_E_SHAREVIOLATION,     STG_E_LOCKVIOLATION,
                                STG_E_MEDIUMFULL,       STG_E_WRITEFAULT,         MAPI_E_NOT_ENOUGH_MEMORY,
                                MAPI_E_NOT_ENOUGH_DISK, MAPI_E_DISK_ERROR};

bool IsPassing(HRESULT hr)
{
    return std::find(std::begin(kPassing), std::end(kPassing), hr) != std::end(kPassing);
}

std::string LineOf(std::string_view what, std::string_view object, std::string_view why)
{
    std::string line = "cannot ";
    line.append(what).append(" '").append(object).append("': ").append(why);
    return line;
}

}  // namespace

std::string Describe(HRESULT hr)
{
    char number[16];
    std::snprintf(number, sizeof number, "0x%08X", static_cast<unsigned>(hr));
    for (const CodeText& entry : kCodeTexts)
        if (entry.code == hr)
            return std::string(entry.text) + " (" + number + ")";
    return std::string("error ") + number;
}

std::string DescribeErrno(int error)
{
    return std::generic_category().message(error);
}

std::string DescribeSystemError(unsigned long error)
{
    // In the standard's words where it has some, so that a reason reads alike everywhere.
    return std::error_code(static_cast<int>(error), std::system_category())
        .default_error_condition()
        .message();
}

void Fail(std::string_view what, std::string_view object, std::string_view why)
{
    throw HostError(LineOf(what, object, why));
}

void Check(HRESULT hr, std::string_view what, std::string_view object)
{
    if (FAILED(hr))
        throw HostError(LineOf(what, object, Describe(hr)), ExitCode::kFailed, IsPassing(hr));
}

}  // namespace quorvane::host
