// persist/testing/hash_db_fixture.h: a hash store with its file in a directory of its own, for tests.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_HASH_DB_FIXTURE_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_HASH_DB_FIXTURE_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "engine/persist/hash_db.h"
#include "engine/persist/testing/told_reader.h"
#include "platform/testing/test_directory.h"

namespace quorvane::testing {

inline Bstr Text(const char* text)
{
    return Bstr(Widen(text));
}

class HashDbTest : public ::testing::Test {
protected:
    void Write(const std::string& bytes) const { std::ofstream(path, std::ios::binary) << bytes; }
    HRESULT Init() { return store.Init(place.Get()); }
    HRESULT Set(const char* key, const char* hash, LONG flags)
    {
        return store.SetHash(Text(key).Get(), hash ? Text(hash).Get() : nullptr, flags);
    }
    // "hash/flags" of a key.
    std::string Get(const char* key)
    {
        Bstr hash;
        LONG flags = 99;
        EXPECT_EQ(store.GetHash(Text(key).Get(), hash.Put(), &flags), S_OK);
        EXPECT_FALSE(hash.IsNull());
        return Narrow(hash.View()) + "/" + std::to_string(flags);
    }

    const test::TestDirectory files;
    const std::filesystem::path directory = files.Path();
    const Bstr place{Widen(files.File(""))};
    const std::string path = files.File("F.dat");
    CHashDB store{OLESTR("F")};
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_HASH_DB_FIXTURE_H_
