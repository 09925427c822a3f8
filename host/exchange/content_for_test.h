// host/exchange/content_for_test.h: what a package says of a folder, and a folder as a device holds it, for a
// test without the engine: items are texts.
#ifndef QUORVANE_HOST_EXCHANGE_CONTENT_FOR_TEST_H_
#define QUORVANE_HOST_EXCHANGE_CONTENT_FOR_TEST_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/exchange/comparison.h"
#include "host/exchange/membership.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace adversary {

struct HeldItem {
    KnownItem known;
    std::string text;  // what it shows here; empty when it is deleted, or not whole
};

// An item on its way.
struct SentItem {
    KnownItem known;
    std::string text;
};

// What a package says of one folder.
struct Content {
    std::string folder;
    std::vector<std::string> entries;  // of its membership, all
    std::vector<SentItem> items;
    std::optional<FolderReport> report;

    std::string Write() const
    {
        WireWriter to;
        const auto put = [&to](const std::string& bytes) {
            to.Put(static_cast<std::uint32_t>(bytes.size())).Put(bytes);
        };
        put(folder);
        to.Put(static_cast<std::uint32_t>(entries.size()));
        for (const std::string& entry : entries)
            put(entry);
        to.Put(static_cast<std::uint32_t>(items.size()));
        for (const SentItem& item : items) {
            put(item.known.id);
            to.Put(static_cast<std::uint8_t>(item.known.isWhole));
            put(item.known.heads.Write());
            put(item.text);
        }
        to.Put(static_cast<std::uint8_t>(report.has_value()));
        if (report)
            put(report->Write());
        return to.Bytes();
    }
    static Content Read(const std::string& bytes)
    {
        WireReader from(bytes, "a package");
        const auto take = [&from] { return std::string(from.Take(from.Get<std::uint32_t>())); };
        Content content;
        content.folder = take();
        for (auto left = from.Get<std::uint32_t>(); left != 0; --left)
            content.entries.push_back(take());
        for (auto left = from.Get<std::uint32_t>(); left != 0; --left) {
            SentItem item;
            item.known.id = take();
            item.known.isWhole = from.Get<std::uint8_t>() == 1;
            item.known.heads = ItemHeads::Read(take(), "an item");
            item.text = take();
            content.items.push_back(item);
        }
        if (from.Get<std::uint8_t>() == 1)
            content.report = FolderReport::Read(take(), "a report");
        from.End();
        return content;
    }
};

// A folder on a device.
struct Folder final : FolderView {
    std::optional<Membership> membership;
    std::map<std::string, HeldItem> items;

    void ForEach(const Visit& visit) const override
    {
        for (const auto& [id, item] : items)
            visit(item.known);
    }
    void ForEachIn(std::uint8_t bucket, const Visit& visit) const override
    {
        for (const auto& [id, item] : items)
            if (BucketOf(id) == bucket)
                visit(item.known);
    }
    bool Has(const SigningKey& device) const
    {
        return membership && IsDeviceOfMember(membership->Members(), device);
    }
};

}  // namespace adversary

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_CONTENT_FOR_TEST_H_
