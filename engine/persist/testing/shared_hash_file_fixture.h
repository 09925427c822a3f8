// persist/testing/shared_hash_file_fixture.h: an open hash file that others get at as well.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_SHARED_HASH_FILE_FIXTURE_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_SHARED_HASH_FILE_FIXTURE_H_

#include <fstream>
#include <memory>
#include <string>

#include "engine/persist/testing/hash_changes.h"
#include "engine/session/trace/crc32.h"
#include "platform/file/file_stamp.h"

namespace quorvane::testing {

class SharedHashFileTest : public HashFileTest {
protected:
    // A file with the keys A1 to A9.
    SharedHashFileTest()
    {
        for (char16_t digit = u'1'; digit <= u'9'; ++digit) {
            model[{u'A', digit}] = u"one";
            mine->Set(Packed({u'A', digit}), Packed(u"one"));
        }
        EXPECT_EQ(mine->Save(), S_OK);
    }

    void Set(HashFile& file, const std::u16string& key, const std::u16string& value)
    {
        file.Set(Packed(key), Packed(value));
        ASSERT_EQ(file.Save(), S_OK);
    }
    FileStamp Stamp() const
    {
        FileStamp stamp;
        EXPECT_EQ(GetPathStamp(path, stamp), S_OK);
        return stamp;
    }
    // A redo record as this system writes it.
    void LeaveRedo(std::uint32_t offset, const std::string& before, const std::string& after) const
    {
        std::string tail;
        AppendLittleEndian32(tail, offset);
        AppendLittleEndian32(tail, 0);
        tail += before + after;
        std::string record("QVREDO2\n");
        AppendLittleEndian32(record, Crc32(tail.data(), tail.size()));
        std::ofstream(path + ".redo", std::ios::binary) << record + tail;
    }

    ToldMap model;
    std::unique_ptr<HashFile> mine = Load();
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_SHARED_HASH_FILE_FIXTURE_H_
