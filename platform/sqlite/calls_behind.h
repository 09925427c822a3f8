// platform/sqlite/calls_behind.h: what SQLite calls of files, handed on to the files behind.
//
// For a file system that stands in front of another one: all calls are given, and those that it does itself
// are put in their places. What calls mean, and on which threads they come, is SQLite's (sqlite3_io_methods,
// sqlite3_vfs).
#ifndef QUORVANE_PLATFORM_SQLITE_CALLS_BEHIND_H_
#define QUORVANE_PLATFORM_SQLITE_CALLS_BEHIND_H_

#include <sqlite3.h>

namespace quorvane {

struct NoScope {};

// Behind: gives the open file behind one. Scope: is there while that one is called.
template <sqlite3_file* (*Behind)(sqlite3_file*), class Scope = NoScope>
class FileCalls {
private:
    template <auto Member>
    struct On;
    template <class Result, class... Arguments,
              Result (*sqlite3_io_methods::*Member)(sqlite3_file*, Arguments...)>
    struct On<Member> {
        static Result Call(sqlite3_file* file, Arguments... arguments)
        {
            [[maybe_unused]] const Scope scope{};
            sqlite3_file* const behind = Behind(file);
            return (behind->pMethods->*Member)(behind, arguments...);
        }
    };

public:
    template <auto Member>
    static constexpr auto Call = &On<Member>::Call;

    // All calls that a file of such a version has (1 to 3); the file behind has them as well.
    static constexpr sqlite3_io_methods Methods(int version) noexcept
    {
        using M = sqlite3_io_methods;
        return {version,
                Call<&M::xClose>,
                Call<&M::xRead>,
                Call<&M::xWrite>,
                Call<&M::xTruncate>,
                Call<&M::xSync>,
                Call<&M::xFileSize>,
                Call<&M::xLock>,
                Call<&M::xUnlock>,
                Call<&M::xCheckReservedLock>,
                Call<&M::xFileControl>,
                Call<&M::xSectorSize>,
                Call<&M::xDeviceCharacteristics>,
                Call<&M::xShmMap>,
                Call<&M::xShmLock>,
                Call<&M::xShmBarrier>,
                Call<&M::xShmUnmap>,
                Call<&M::xFetch>,
                Call<&M::xUnfetch>};
    }
};

// Behind: gives the file system behind, at each call anew.
template <sqlite3_vfs* (*Behind)()>
class FileSystemCalls {
private:
    template <auto Member>
    struct On;
    template <class Result, class... Arguments, Result (*sqlite3_vfs::*Member)(sqlite3_vfs*, Arguments...)>
    struct On<Member> {
        static Result Call(sqlite3_vfs*, Arguments... arguments)
        {
            sqlite3_vfs* const behind = Behind();
            return (behind->*Member)(behind, arguments...);
        }
    };

public:
    template <auto Member>
    static constexpr auto Call = &On<Member>::Call;

    // All calls of version 2 but those for loading extensions; the file system behind has them as well.
    //
    // name      for as long as the file system is registered.
    // fileSize  of what stands for an open file, in bytes.
    static sqlite3_vfs Methods(const char* name, int fileSize) noexcept
    {
        using M = sqlite3_vfs;
        sqlite3_vfs calls{};
        calls.iVersion = 2;
        calls.szOsFile = fileSize;
        calls.mxPathname = Behind()->mxPathname;
        calls.zName = name;
        calls.xOpen = Call<&M::xOpen>;
        calls.xDelete = Call<&M::xDelete>;
        calls.xAccess = Call<&M::xAccess>;
        calls.xFullPathname = Call<&M::xFullPathname>;
        calls.xRandomness = Call<&M::xRandomness>;
        calls.xSleep = Call<&M::xSleep>;
        calls.xGetLastError = Call<&M::xGetLastError>;
        calls.xCurrentTimeInt64 = Call<&M::xCurrentTimeInt64>;
        return calls;
    }
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_SQLITE_CALLS_BEHIND_H_
