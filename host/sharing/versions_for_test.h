// host/sharing/versions_for_test.h: an item of another member's in a mailbox, and revisions of it that others
// make.
#ifndef QUORVANE_HOST_SHARING_VERSIONS_FOR_TEST_H_
#define QUORVANE_HOST_SHARING_VERSIONS_FOR_TEST_H_

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "host/sharing/message_content.h"
#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

// Another member's device, which makes revisions of the item {I}.
struct Maker {
    explicit Maker(const exchange::DeviceKeys& keys) : id(keys.Id()) { changer.bytes = id.bytes; }

    exchange::ItemHeads Edit(exchange::ItemHeads heads, std::uint64_t when, unsigned char content) const
    {
        exchange::ContentDigest digest{};
        digest[0] = content;
        heads.Change(changer, id, when, digest, [](const exchange::Revision&) { return false; });
        return heads;
    }
    exchange::ItemHeads Delete(exchange::ItemHeads heads, std::uint64_t when) const
    {
        heads.Change(changer, id, when, std::nullopt, [](const exchange::Revision&) { return false; });
        return heads;
    }

    exchange::DeviceId id;
    exchange::ChangerId changer;
};

class ItemVersionsTest : public ::testing::Test {
protected:
    // An item of alice's that is here, applied to the end.
    void SetUp() override
    {
        entryId = here.AddMessage("from alice");
        here.AddRow("{I}", entryId);
        ItemRecord record{"{I}", "{F}", {1, "alice"}, false, here.ModifiedOf(entryId)};
        exchange::Revision first;
        first.version.Raise(alice.changer);
        first.stamp = 1;
        first.by = alice.id;
        first.content = DigestOf(ReadContent(*Open(), "{I}"));
        record.heads.Take(first);
        here.records.PutItem(record);
        known = record.heads;
    }

    ComPtr<IMessage> Open() { return OpenMessage(here.mail, entryId, true); }
    ItemRecord Record() { return *here.records.FindItem("{I}"); }

    ItemVersions::Verdict Arrive(const exchange::ItemHeads& heads, bool hasMessage = true)
    {
        ItemRecord sent{"{I}", "{F}", {1, "alice"}, false, 0, heads, true, false};
        const auto verdict =
            here.addin.Versions().Judge({"{I}", "{F}", "alice", FormatItem(sent), hasMessage});
        if (verdict.isNoted || verdict.isApplied)
            here.records.PutItem(verdict.record);
        return verdict;
    }
    // What the engine asks of a change.
    bool IsSent()
    {
        bool ignore = false;
        EXPECT_EQ(here.addin.OnItemChanged(here.ItemOf("{I}").Get(), ignore), S_OK);
        return !ignore;
    }
    std::vector<TrashEntry> InTrash() { return here.addin.Versions().Removed().Entries(); }

    SharedTestMailbox here;
    const Maker alice{here.alice}, carol{here.carol};
    std::string entryId;
    exchange::ItemHeads known;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_VERSIONS_FOR_TEST_H_
