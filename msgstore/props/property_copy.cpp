#include "msgstore/props/property_copy.h"

#include <algorithm>

#include "msgstore/props/property_names.h"
#include "msgstore/props/property_object.h"
#include "msgstore/util/guarded.h"
#include "msgstore/util/memory.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

constexpr ULONG kOwnIds[] = {PROP_ID(PR_PARENT_ENTRYID),
                             PROP_ID(PR_MESSAGE_SIZE),
                             PROP_ID(PR_HASATTACH),
                             PROP_ID(PR_ATTACH_SIZE),
                             PROP_ID(PR_ATTACH_NUM),
                             PROP_ID(PR_ACCESS),
                             PROP_ID(PR_ROW_TYPE),
                             PROP_ID(PR_INSTANCE_KEY),
                             PROP_ID(PR_ACCESS_LEVEL),
                             PROP_ID(PR_MAPPING_SIGNATURE),
                             PROP_ID(PR_RECORD_KEY),
                             PROP_ID(PR_STORE_RECORD_KEY),
                             PROP_ID(PR_STORE_ENTRYID),
                             PROP_ID(PR_OBJECT_TYPE),
                             PROP_ID(PR_ENTRYID),
                             PROP_ID(PR_ROWID),
                             PROP_ID(PR_LAST_MODIFICATION_TIME),
                             PROP_ID(PR_STORE_SUPPORT_MASK),
                             PROP_ID(PR_MDB_PROVIDER),
                             PROP_ID(kPrMessageStatus)};

// A list of tags in the form that MAPI takes.
class TagArray {
public:
    explicit TagArray(const std::vector<ULONG>& tags) : words_(tags.size() + 2)
    {
        words_[0] = static_cast<ULONG>(tags.size());
        std::copy(tags.begin(), tags.end(), words_.begin() + 1);
    }
    LPSPropTagArray Get() noexcept { return reinterpret_cast<LPSPropTagArray>(words_.data()); }

private:
    std::vector<ULONG> words_;
};

bool SameSignature(IMAPIProp& a, IMAPIProp& b) noexcept
{
    MapiBuffer<SPropValue> first;
    MapiBuffer<SPropValue> second;
    if (FAILED(HrGetOneProp(&a, PR_MAPPING_SIGNATURE, first.Put())) ||
        FAILED(HrGetOneProp(&b, PR_MAPPING_SIGNATURE, second.Put())))
        return false;
    const SBinary& one = first->Value.bin;
    const SBinary& two = second->Value.bin;
    return one.cb == two.cb && std::equal(one.lpb, one.lpb + one.cb, two.lpb);
}

HRESULT CopyStream(IStream& from, IStream& to)
{
    std::vector<BYTE> block(256 * 1024);
    for (;;) {
        ULONG read = 0;
        QV_RETURN_IF_FAILED(from.Read(block.data(), static_cast<ULONG>(block.size()), &read));
        if (read == 0)
            return to.Commit(0);
        for (ULONG at = 0; at < read;) {
            ULONG written = 0;
            QV_RETURN_IF_FAILED(to.Write(block.data() + at, read - at, &written));
            if (written == 0)
                return MAPI_E_NOT_ENOUGH_DISK;
            at += written;
        }
    }
}

// One run of CopyProperties.
class Copier {
public:
    Copier(IMAPIProp& source, IMAPIProp& target, std::vector<SPropProblem>& problems)
        : source_(source), target_(target), problems_(problems)
    {}

    HRESULT Copy(const std::vector<ULONG>& tags)
    {
        constexpr std::size_t kBatch = 64;
        QV_RETURN_IF_FAILED(exchange_.Prepare(source_, tags, target_));
        std::vector<ULONG> batch;
        std::vector<ULONG> places;
        for (std::size_t i = 0; i < tags.size(); ++i) {
            if (PROP_TYPE(tags[i]) != PT_OBJECT) {
                batch.push_back(tags[i]);
                places.push_back(static_cast<ULONG>(i));
            }
            if (batch.size() == kBatch || (i + 1 == tags.size() && !batch.empty())) {
                QV_RETURN_IF_FAILED(CopyBatch(batch, places));
                batch.clear();
                places.clear();
            }
        }
        return S_OK;
    }

private:
    HRESULT CopyBatch(const std::vector<ULONG>& tags, const std::vector<ULONG>& places)
    {
        TagArray asked(tags);
        ULONG count = 0;
        MapiBuffer<SPropValue> values;
        QV_RETURN_IF_FAILED(source_.GetProps(asked.Get(), MAPI_UNICODE, &count, values.Put()));
        std::vector<SPropValue> ready;
        std::vector<ULONG> readyPlaces;
        for (ULONG i = 0; i < count && i < tags.size(); ++i) {
            const HRESULT hr = Judge(tags[i], values[i]);
            if (FAILED(hr)) {
                problems_.push_back({places[i], tags[i], hr});
            } else if (hr == S_OK) {
                ready.push_back(values[i]);
                readyPlaces.push_back(places[i]);
            }
        }
        return ready.empty() ? S_OK : Set(ready, readyPlaces);
    }

    // S_OK: the value is ready to be set; S_FALSE: it went through streams.
    HRESULT Judge(ULONG tag, SPropValue& value)
    {
        const ULONG targetTag = exchange_.TagFor(tag);
        if (targetTag == 0)
            return MAPI_E_UNEXPECTED_ID;
        if (PROP_TYPE(value.ulPropTag) != PT_ERROR) {
            value.ulPropTag = PROP_TAG(PROP_TYPE(value.ulPropTag), PROP_ID(targetTag));
            return S_OK;
        }
        if (value.Value.err != MAPI_E_NOT_ENOUGH_MEMORY)
            return value.Value.err;
        QV_RETURN_IF_FAILED(CopyThroughStreams(source_, tag, target_, targetTag));
        return S_FALSE;
    }

    HRESULT Set(std::vector<SPropValue>& values, const std::vector<ULONG>& places)
    {
        MapiBuffer<SPropProblemArray> found;
        QV_RETURN_IF_FAILED(target_.SetProps(static_cast<ULONG>(values.size()), values.data(), found.Put()));
        for (ULONG i = 0; found && i < found->cProblem; ++i) {
            const SPropProblem& problem = found->aProblem[i];
            if (problem.ulIndex < places.size())
                problems_.push_back({places[problem.ulIndex], problem.ulPropTag, problem.scode});
        }
        return S_OK;
    }

    IMAPIProp& source_;
    IMAPIProp& target_;
    std::vector<SPropProblem>& problems_;
    IdExchange exchange_;
};

bool Contains(const SPropTagArray* tags, ULONG id) noexcept
{
    if (!tags)
        return false;
    const ULONG* const end = tags->aulPropTag + tags->cValues;
    return std::any_of(tags->aulPropTag, end, [id](ULONG tag) { return PROP_ID(tag) == id; });
}

// The target's IMAPIProp: every interface of an object with properties begins with it.
HRESULT TargetOf(LPCIID iid, LPVOID target, IMAPIProp** result) noexcept
{
    if (!iid || !target)
        return MAPI_E_INVALID_PARAMETER;
    for (const IID* known : {&IID_IMAPIProp, &IID_IMessage, &IID_IAttachment, &IID_IMAPIFolder,
                             &IID_IMAPIContainer, &IID_IMsgStore, &IID_IProfSect}) {
        if (IsEqualIID(*iid, *known)) {
            *result = static_cast<IMAPIProp*>(target);
            return S_OK;
        }
    }
    return MAPI_E_INTERFACE_NOT_SUPPORTED;
}

constexpr ULONG kCopyFlags = MAPI_MOVE | MAPI_NOREPLACE | MAPI_DECLINE_OK | MAPI_DIALOG;

HRESULT DropTagsThatTargetHas(IMAPIProp& target, std::vector<ULONG>& tags)
{
    MapiBuffer<SPropTagArray> held;
    QV_RETURN_IF_FAILED(target.GetPropList(MAPI_UNICODE, held.Put()));
    tags.erase(std::remove_if(tags.begin(), tags.end(),
                              [&](ULONG tag) {
                                  return PROP_TYPE(tag) != PT_OBJECT && Contains(held.Get(), PROP_ID(tag));
                              }),
               tags.end());
    return S_OK;
}

// Ends a copy: the worst problem is the result where the caller asked for no list of them, so that a
// loss never goes unsaid.
HRESULT Conclude(const std::vector<SPropProblem>& found, const MapiAllocator& allocator,
                 LPSPropProblemArray* problems) noexcept
{
    if (problems)
        return GiveProblems(found, allocator, problems);
    const auto loss = std::find_if(found.begin(), found.end(),
                                   [](const SPropProblem& problem) { return IsLoss(problem.scode); });
    return loss == found.end() ? S_OK : loss->scode;
}

HRESULT DeleteCopied(IMAPIProp& source, std::vector<ULONG> tags, const std::vector<SPropProblem>& problems)
{
    for (const SPropProblem& problem : problems)
        tags[problem.ulIndex] = PR_NULL;
    tags.erase(std::remove(tags.begin(), tags.end(), static_cast<ULONG>(PR_NULL)), tags.end());
    if (tags.empty())
        return S_OK;
    TagArray moved(tags);
    return source.DeleteProps(moved.Get(), nullptr);
}

}  // namespace

HRESULT IdExchange::Prepare(IMAPIProp& source, const std::vector<ULONG>& tags, IMAPIProp& target)
{
    for (const ULONG tag : tags) {
        if (PROP_ID(tag) >= kFirstNamedId)
            from_.push_back(tag);
    }
    to_ = from_;
    if (from_.empty() || SameSignature(source, target))
        return S_OK;
    return Ask(source, target);
}

ULONG IdExchange::TagFor(ULONG tag) const noexcept
{
    if (PROP_ID(tag) < kFirstNamedId)
        return tag;
    for (std::size_t i = 0; i < from_.size(); ++i) {
        if (PROP_ID(from_[i]) == PROP_ID(tag))
            return PROP_ID(to_[i]) == PROP_ID_NULL ? 0 : PROP_TAG(PROP_TYPE(tag), PROP_ID(to_[i]));
    }
    return 0;
}

HRESULT IdExchange::Ask(IMAPIProp& source, IMAPIProp& target)
{
    std::fill(to_.begin(), to_.end(), 0);
    TagArray tags(from_);
    LPSPropTagArray asked = tags.Get();
    ULONG count = 0;
    MapiBuffer<LPMAPINAMEID> names;
    QV_RETURN_IF_FAILED(source.GetNamesFromIDs(&asked, nullptr, 0, &count, names.Put()));
    std::vector<LPMAPINAMEID> known;
    std::vector<std::size_t> places;
    for (ULONG i = 0; i < count && i < to_.size(); ++i) {
        if (names[i]) {
            known.push_back(names[i]);
            places.push_back(i);
        }
    }
    if (known.empty())
        return S_OK;
    MapiBuffer<SPropTagArray> ids;
    QV_RETURN_IF_FAILED(
        target.GetIDsFromNames(static_cast<ULONG>(known.size()), known.data(), MAPI_CREATE, ids.Put()));
    for (std::size_t i = 0; i < known.size() && i < ids->cValues; ++i) {
        if (PROP_TYPE(ids->aulPropTag[i]) != PT_ERROR)
            to_[places[i]] = ids->aulPropTag[i];
    }
    return S_OK;
}

bool IsOwnProperty(ULONG id) noexcept
{
    return std::find(std::begin(kOwnIds), std::end(kOwnIds), id) != std::end(kOwnIds);
}

bool IsLoss(HRESULT problem) noexcept
{
    return FAILED(problem) && problem != MAPI_E_COMPUTED && problem != MAPI_E_NOT_FOUND &&
           problem != MAPI_E_UNEXPECTED_ID && problem != MAPI_E_INVALID_TYPE;
}

HRESULT CopyThroughStreams(IMAPIProp& source, ULONG sourceTag, IMAPIProp& target, ULONG targetTag) noexcept
{
    return Guarded([&]() -> HRESULT {
        ComPtr<IStream> from;
        ComPtr<IStream> to;
        QV_RETURN_IF_FAILED(source.OpenProperty(sourceTag, &IID_IStream, 0, 0, from.PutUnknown()));
        QV_RETURN_IF_FAILED(
            target.OpenProperty(targetTag, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, to.PutUnknown()));
        return CopyStream(*from, *to);
    });
}

HRESULT CopyProperties(IMAPIProp& source, const std::vector<ULONG>& tags, IMAPIProp& target,
                       std::vector<SPropProblem>& problems) noexcept
{
    return Guarded([&] { return Copier(source, target, problems).Copy(tags); });
}

HRESULT PropertyObject::CopyListed(IMAPIProp* self, const std::vector<ULONG>& tags, IMAPIProp& target,
                                   ULONG flags, LPSPropProblemArray* problems)
{
    std::vector<SPropProblem> found;
    for (std::size_t i = 0; i < tags.size(); ++i) {
        if (PROP_TYPE(tags[i]) != PT_OBJECT)
            continue;
        if (const HRESULT hr = CopyObject(tags[i], target, flags); FAILED(hr))
            found.push_back({static_cast<ULONG>(i), tags[i], hr});
    }
    QV_RETURN_IF_FAILED(CopyProperties(*self, tags, target, found));
    if ((flags & MAPI_MOVE) != 0)
        QV_RETURN_IF_FAILED(DeleteCopied(*self, tags, found));
    return Conclude(found, Allocator(), problems);
}

HRESULT PropertyObject::DoCopyTo(IMAPIProp* self, ULONG excludedCount, LPCIID excludedInterfaces,
                                 LPSPropTagArray excludedTags, LPCIID targetInterface, LPVOID target,
                                 ULONG flags, LPSPropProblemArray* problems) noexcept
{
    if (problems)
        *problems = nullptr;
    if (excludedCount > 0 && !excludedInterfaces)
        return MAPI_E_INVALID_PARAMETER;
    if ((flags & ~static_cast<ULONG>(kCopyFlags)) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    return Guarded([&]() -> HRESULT {
        IMAPIProp* object = nullptr;
        QV_RETURN_IF_FAILED(TargetOf(targetInterface, target, &object));
        if (object == self)
            return MAPI_E_NO_ACCESS;
        MapiBuffer<SPropTagArray> all;
        QV_RETURN_IF_FAILED(self->GetPropList(MAPI_UNICODE, all.Put()));
        std::vector<ULONG> tags;
        for (ULONG i = 0; i < all->cValues; ++i) {
            const ULONG id = PROP_ID(all->aulPropTag[i]);
            if (!IsOwnProperty(id) && !Contains(excludedTags, id))
                tags.push_back(all->aulPropTag[i]);
        }
        if ((flags & MAPI_NOREPLACE) != 0)
            QV_RETURN_IF_FAILED(DropTagsThatTargetHas(*object, tags));
        return CopyListed(self, tags, *object, flags, problems);
    });
}

HRESULT PropertyObject::DoCopyProps(IMAPIProp* self, LPSPropTagArray includedTags, LPCIID targetInterface,
                                    LPVOID target, ULONG flags, LPSPropProblemArray* problems) noexcept
{
    if (problems)
        *problems = nullptr;
    if (!includedTags || includedTags->cValues == 0)
        return MAPI_E_INVALID_PARAMETER;
    if ((flags & ~static_cast<ULONG>(kCopyFlags)) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    return Guarded([&]() -> HRESULT {
        IMAPIProp* object = nullptr;
        QV_RETURN_IF_FAILED(TargetOf(targetInterface, target, &object));
        if (object == self)
            return MAPI_E_NO_ACCESS;
        std::vector<ULONG> tags(includedTags->aulPropTag, includedTags->aulPropTag + includedTags->cValues);
        if ((flags & MAPI_NOREPLACE) != 0)
            QV_RETURN_IF_FAILED(DropTagsThatTargetHas(*object, tags));
        return CopyListed(self, tags, *object, flags, problems);
    });
}

}  // namespace quorvane
