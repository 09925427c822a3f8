#include "msgstore/message/compare_messages.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "msgstore/props/property_object.h"
#include "msgstore/util/guarded.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

using Values = std::map<std::string, std::string>;  // how a property is called, and its type and bytes

std::string Hex(ULONG number)
{
    char text[16];
    std::snprintf(text, sizeof(text), "%08X", static_cast<unsigned>(number));
    return text;
}

std::string NameText(const MAPINAMEID& name)
{
    OLECHAR set[40] = {};
    StringFromGUID2(*name.lpguid, set, 40);
    const std::string prefix = ToUtf8(set) + ":";
    return name.ulKind == MNID_STRING ? prefix + ToUtf8(name.Kind.lpwstrName)
                                      : prefix + Hex(static_cast<ULONG>(name.Kind.lID));
}

std::string BytesOf(const PropertyValue& value)
{
    std::string bytes = Hex(PROP_TYPE(value.tag)) + ":";
    bytes.append(value.data.begin(), value.data.end());
    for (const Bytes& item : value.items) {
        bytes += Hex(static_cast<ULONG>(item.size()));
        bytes.append(item.begin(), item.end());
    }
    return bytes;
}

// Reads a value that's too long to be listed.
HRESULT BytesThroughStream(IMAPIProp& object, ULONG tag, std::string& bytes)
{
    ComPtr<IStream> stream;
    QV_RETURN_IF_FAILED(object.OpenProperty(tag, &IID_IStream, 0, 0, stream.PutUnknown()));
    bytes = Hex(PROP_TYPE(tag)) + ":";
    std::vector<char> block(64 * 1024);
    for (;;) {
        ULONG read = 0;
        QV_RETURN_IF_FAILED(stream->Read(block.data(), static_cast<ULONG>(block.size()), &read));
        if (read == 0)
            return S_OK;
        bytes.append(block.data(), read);
    }
}

// One comparison of two messages and all that's in them.
class Comparison {
public:
    Comparison(const CompareOptions& options, std::vector<std::string>& differences)
        : options_(options), differences_(differences)
    {}

    HRESULT Messages(IMessage& first, IMessage& second, const std::string& path)
    {
        QV_RETURN_IF_FAILED(Properties(first, second, path));
        QV_RETURN_IF_FAILED(Recipients(first, second, path));
        return Attachments(first, second, path);
    }

private:
    bool IsIgnored(ULONG tag) const
    {
        return IsOwnProperty(PROP_ID(tag)) || options_.ignored.count(PROP_ID(tag)) > 0;
    }

    HRESULT Properties(IMAPIProp& first, IMAPIProp& second, const std::string& path)
    {
        Values one;
        Values two;
        QV_RETURN_IF_FAILED(Read(first, one));
        QV_RETURN_IF_FAILED(Read(second, two));
        Judge(one, two, path);
        return S_OK;
    }

    void Judge(const Values& one, const Values& two, const std::string& path)
    {
        for (const auto& [name, bytes] : one) {
            const auto other = two.find(name);
            if (other == two.end())
                differences_.push_back(path + " " + name + ": only in the first");
            else if (other->second != bytes)
                differences_.push_back(path + " " + name + ": different, " + Brief(bytes) + " and " +
                                       Brief(other->second));
        }
        for (const auto& [name, bytes] : two) {
            if (!options_.allowAdded && one.count(name) == 0)
                differences_.push_back(path + " " + name + ": only in the second");
        }
    }

    static std::string Brief(const std::string& bytes)
    {
        std::string text = std::to_string(bytes.size()) + " bytes ";
        for (std::size_t i = 0; i < std::min<std::size_t>(bytes.size(), 60); ++i)
            text += bytes[i] >= ' ' && bytes[i] < 127 ? bytes[i] : '.';
        return text;
    }

    HRESULT Read(IMAPIProp& object, Values& values)
    {
        MapiBuffer<SPropTagArray> tags;
        QV_RETURN_IF_FAILED(object.GetPropList(MAPI_UNICODE, tags.Put()));
        for (ULONG i = 0; i < tags->cValues; ++i) {
            const ULONG tag = tags->aulPropTag[i];
            std::string name = Hex(tag);
            if (IsIgnored(tag) || PROP_TYPE(tag) == PT_OBJECT || !NameOf(object, tag, name))
                continue;
            QV_RETURN_IF_FAILED(ReadOne(object, tag, values[name]));
        }
        return S_OK;
    }

    // False for an identifier that ought to have a name and has none: it means nothing.
    bool NameOf(IMAPIProp& object, ULONG tag, std::string& name) const
    {
        if (PROP_ID(tag) < kFirstNamedId)
            return true;
        SPropTagArray asked{1, {tag}};
        LPSPropTagArray place = &asked;
        ULONG count = 0;
        MapiBuffer<LPMAPINAMEID> names;
        if (FAILED(object.GetNamesFromIDs(&place, nullptr, 0, &count, names.Put())) || count != 1 ||
            !names[0])
            return false;
        name = NameText(*names[0]);
        return true;
    }

    HRESULT ReadOne(IMAPIProp& object, ULONG tag, std::string& bytes)
    {
        SPropTagArray asked{1, {tag}};
        ULONG count = 0;
        MapiBuffer<SPropValue> value;
        QV_RETURN_IF_FAILED(object.GetProps(&asked, MAPI_UNICODE, &count, value.Put()));
        if (PROP_TYPE(value->ulPropTag) == PT_ERROR) {
            if (value->Value.err == MAPI_E_NOT_ENOUGH_MEMORY)
                return BytesThroughStream(object, tag, bytes);
            bytes = "error " + Hex(static_cast<ULONG>(value->Value.err));
            return S_OK;
        }
        PropertyValue kept;
        QV_RETURN_IF_FAILED(FromSPropValue(*value.Get(), kept));
        bytes = BytesOf(kept);
        return S_OK;
    }

    HRESULT Recipients(IMessage& first, IMessage& second, const std::string& path)
    {
        std::vector<Values> one;
        std::vector<Values> two;
        QV_RETURN_IF_FAILED(ReadRecipients(first, one));
        QV_RETURN_IF_FAILED(ReadRecipients(second, two));
        if (one.size() != two.size())
            differences_.push_back(path + " recipients: " + std::to_string(one.size()) + " and " +
                                   std::to_string(two.size()));
        for (std::size_t i = 0; i < std::min(one.size(), two.size()); ++i)
            Judge(one[i], two[i], path + " recipient " + std::to_string(i));
        return S_OK;
    }

    HRESULT ReadRecipients(IMessage& message, std::vector<Values>& recipients)
    {
        ComPtr<IMAPITable> table;
        RowSet rows;
        QV_RETURN_IF_FAILED(message.GetRecipientTable(MAPI_UNICODE, table.Put()));
        QV_RETURN_IF_FAILED(HrQueryAllRows(table.Get(), nullptr, nullptr, nullptr, 0, rows.Put()));
        for (const SRow& row : rows) {
            Values values;
            for (ULONG i = 0; i < row.cValues; ++i) {
                PropertyValue kept;
                std::string name = Hex(row.lpProps[i].ulPropTag);
                const SPropValue& value = row.lpProps[i];
                const bool isError = PROP_TYPE(value.ulPropTag) == PT_ERROR;
                if (PROP_ID(value.ulPropTag) == PROP_ID(PR_ROWID) ||
                    (isError && value.Value.err == MAPI_E_NOT_FOUND) ||
                    (!isError && FAILED(FromSPropValue(value, kept))) ||
                    !NameOf(message, value.ulPropTag, name))
                    continue;
                values[name] = isError ? "error " + Hex(static_cast<ULONG>(value.Value.err)) : BytesOf(kept);
            }
            recipients.push_back(std::move(values));
        }
        return S_OK;
    }

    static HRESULT Numbers(IMessage& message, std::vector<ULONG>& numbers)
    {
        ComPtr<IMAPITable> table;
        RowSet rows;
        SPropTagArray column{1, {PR_ATTACH_NUM}};
        QV_RETURN_IF_FAILED(message.GetAttachmentTable(0, table.Put()));
        QV_RETURN_IF_FAILED(HrQueryAllRows(table.Get(), &column, nullptr, nullptr, 0, rows.Put()));
        for (const SRow& row : rows)
            numbers.push_back(row.lpProps[0].Value.ul);
        return S_OK;
    }

    HRESULT Attachments(IMessage& first, IMessage& second, const std::string& path)
    {
        std::vector<ULONG> one;
        std::vector<ULONG> two;
        QV_RETURN_IF_FAILED(Numbers(first, one));
        QV_RETURN_IF_FAILED(Numbers(second, two));
        if (one.size() != two.size())
            differences_.push_back(path + " attachments: " + std::to_string(one.size()) + " and " +
                                   std::to_string(two.size()));
        for (std::size_t i = 0; i < std::min(one.size(), two.size()); ++i) {
            ComPtr<IAttach> left;
            ComPtr<IAttach> right;
            const std::string place = path + " attachment " + std::to_string(i);
            QV_RETURN_IF_FAILED(first.OpenAttach(one[i], nullptr, 0, left.Put()));
            QV_RETURN_IF_FAILED(second.OpenAttach(two[i], nullptr, 0, right.Put()));
            QV_RETURN_IF_FAILED(Properties(*left, *right, place));
            QV_RETURN_IF_FAILED(Objects(*left, *right, place));
        }
        return S_OK;
    }

    HRESULT Objects(IAttach& first, IAttach& second, const std::string& path)
    {
        ComPtr<IMessage> one;
        ComPtr<IMessage> two;
        (void)first.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, one.PutUnknown());
        (void)second.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, two.PutUnknown());
        if (!one != !two)
            differences_.push_back(path + ": one holds a message, the other doesn't");
        if (one && two)
            return Messages(*one, *two, path + " message");
        ComPtr<IStorage> left;
        ComPtr<IStorage> right;
        (void)first.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, 0, left.PutUnknown());
        (void)second.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, 0, right.PutUnknown());
        if (!left != !right)
            differences_.push_back(path + ": one holds a storage, the other doesn't");
        return left && right ? Storages(*left, *right, path + " storage") : S_OK;
    }

    HRESULT Storages(IStorage& first, IStorage& second, const std::string& path)
    {
        Values one;
        Values two;
        QV_RETURN_IF_FAILED(ReadStorage(first, "", one));
        QV_RETURN_IF_FAILED(ReadStorage(second, "", two));
        Judge(one, two, path);
        return S_OK;
    }

    HRESULT ReadStorage(IStorage& storage, const std::string& path, Values& values)
    {
        ComPtr<IEnumSTATSTG> elements;
        QV_RETURN_IF_FAILED(storage.EnumElements(0, nullptr, 0, elements.Put()));
        for (;;) {
            STATSTG stat{};
            ULONG fetched = 0;
            QV_RETURN_IF_FAILED(elements->Next(1, &stat, &fetched));
            if (fetched == 0)
                return S_OK;
            const OleString name = stat.pwcsName;
            CoTaskMemFree(stat.pwcsName);
            const std::string place = path + "/" + ToUtf8(name);
            QV_RETURN_IF_FAILED(ReadElement(storage, name, stat.type == STGTY_STORAGE, place, values));
        }
    }

    HRESULT ReadElement(IStorage& storage, const OleString& name, bool isStorage, const std::string& place,
                        Values& values)
    {
        constexpr DWORD kMode = STGM_READ | STGM_SHARE_EXCLUSIVE;
        if (isStorage) {
            ComPtr<IStorage> child;
            QV_RETURN_IF_FAILED(storage.OpenStorage(name.c_str(), nullptr, kMode, nullptr, 0, child.Put()));
            values[place] = "storage";
            return ReadStorage(*child, place, values);
        }
        ComPtr<IStream> stream;
        QV_RETURN_IF_FAILED(storage.OpenStream(name.c_str(), nullptr, kMode, 0, stream.Put()));
        std::string& bytes = values[place];
        char block[4096];
        for (;;) {
            ULONG read = 0;
            QV_RETURN_IF_FAILED(stream->Read(block, sizeof(block), &read));
            if (read == 0)
                return S_OK;
            bytes.append(block, read);
        }
    }

    const CompareOptions& options_;
    std::vector<std::string>& differences_;
};

}  // namespace

HRESULT CompareMessages(IMessage& first, IMessage& second, const CompareOptions& options,
                        std::vector<std::string>& differences)
{
    return Guarded([&] { return Comparison(options, differences).Messages(first, second, "message"); });
}

}  // namespace quorvane
