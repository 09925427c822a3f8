#include "tests/model/world.h"

#include <sqlite3.h>

#include <cstring>
#include <fstream>

#include "engine/session/context/notification_gate.h"
#include "engine/session/library.h"
#include "engine/session/session.h"
#include "engine/transfer/pool/thread_pool.h"
#include "msgstore/store/test_switches.h"
#include "platform/clock/clock.h"
#include "quorvane3/message_store.h"
#include "quorvane3/storage.h"
#include "tests/support/packages.h"

namespace quorvane::model {

namespace {

using test::Check;
using test::Text;
using test::Utf8;

constexpr DWORD kRead = STGM_READ | STGM_SHARE_EXCLUSIVE;

// The prescribed pauses take no time.
class WithoutPauses {
public:
    WithoutPauses() noexcept
    {
        ReplacePauses([](std::chrono::microseconds) noexcept {});
    }
    ~WithoutPauses() { ReplacePauses(nullptr); }
};

void SetSubject(IMessage& message, const std::string& subject)
{
    OleString wide = FromUtf8(subject);
    SPropValue value{};
    value.ulPropTag = PR_SUBJECT_W;
    value.Value.lpszW = wide.data();
    Check(message.SetProps(1, &value, nullptr), "set a subject");
    // Nobody turns the power off.
    Check(message.SaveChanges(MAPI_DEFERRED_ERRORS), "save a mail");
}

std::string EntryIdOf(IMAPIProp& object)
{
    SPropValue* value = nullptr;
    Check(HrGetOneProp(&object, PR_ENTRYID, &value), "read an identifier");
    const std::string id = test::HexOf(value->Value.bin);
    MAPIFreeBuffer(value);
    return id;
}

// One mail as a list of mails.
class OneMail {
public:
    explicit OneMail(const EntryId& entryId) : bytes_(entryId.size() / 2)
    {
        FBinFromHex(const_cast<char*>(entryId.c_str()), bytes_.data());
        binary_ = {static_cast<ULONG>(bytes_.size()), bytes_.data()};
    }
    OneMail(const OneMail&) = delete;
    OneMail& operator=(const OneMail&) = delete;
    LPENTRYLIST List() { return &list_; }

private:
    std::vector<BYTE> bytes_;
    SBinary binary_{};
    ENTRYLIST list_{1, &binary_};
};

std::vector<BYTE> ReadStream(IStorage& storage, const OLECHAR* name)
{
    ComPtr<IStream> stream;
    Check(storage.OpenStream(name, nullptr, kRead, 0, stream.Put()), "open a stream");
    STATSTG stat{};
    Check(stream->Stat(&stat, STATFLAG_NONAME), "measure a stream");
    std::vector<BYTE> bytes(stat.cbSize.QuadPart);
    ULONG read = 0;
    Check(stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read), "read a stream");
    return bytes;
}

ULONG NumberAt(const std::vector<BYTE>& bytes, size_t& at)
{
    ULONG number = 0;
    if (at + sizeof number > bytes.size())
        throw std::runtime_error("the bytes end before a number");
    std::memcpy(&number, bytes.data() + at, sizeof number);
    at += sizeof number;
    return number;
}

// A text behind its size, which counts the terminator.
std::string TextAt(const std::vector<BYTE>& bytes, size_t& at)
{
    const ULONG size = NumberAt(bytes, at);
    if (at + size > bytes.size())
        throw std::runtime_error("the bytes end before a text");
    OleString text(size / sizeof(OLECHAR), 0);
    std::memcpy(text.data(), bytes.data() + at, size);
    at += size;
    if (!text.empty())
        text.pop_back();
    return ToUtf8(text);
}

void ReadElement(IStorage& element, Package& package)
{
    const std::vector<BYTE> contents = ReadStream(element, OLESTR("Contents"));
    size_t at = 0;
    Check(NumberAt(contents, at) == 1808 ? S_OK : E_FAIL, "read a format's version");
    const Id id = TextAt(contents, at);
    Element& read = package[id];
    read.folder = TextAt(contents, at);
    TextAt(contents, at);
    read.action = static_cast<LONG>(NumberAt(contents, at));
    ComPtr<IStorage> message;
    if (FAILED(element.OpenStorage(OLESTR("MAPI_DATA"), nullptr, kRead, nullptr, 0, message.Put())))
        return;
    const std::vector<BYTE> subject = ReadStream(*message.Get(), OLESTR("__substg1.0_0037001F"));
    OleString text(subject.size() / sizeof(OLECHAR), 0);
    std::memcpy(text.data(), subject.data(), subject.size());
    read.subject = ToUtf8(text);
}

Package ReadPackage(const std::filesystem::path& path)
{
    ComPtr<IStorage> root;
    ComPtr<IStorage> version;
    ComPtr<IStorage> items;
    ComPtr<IEnumSTATSTG> elements;
    Check(StgOpenStorage(FromUtf8(path.string()).c_str(), nullptr, kRead, nullptr, 0, root.Put()),
          "open a package");
    Check(root->OpenStorage(OLESTR("1.0"), nullptr, kRead, nullptr, 0, version.Put()), "open a package");
    Check(version->OpenStorage(OLESTR("Items"), nullptr, kRead, nullptr, 0, items.Put()), "open a package");
    Check(items->EnumElements(0, nullptr, 0, elements.Put()), "list a package");
    Package package;
    for (STATSTG stat{}; elements->Next(1, &stat, nullptr) == S_OK;) {
        ComPtr<IStorage> element;
        Check(items->OpenStorage(stat.pwcsName, nullptr, kRead, nullptr, 0, element.Put()),
              "open an element");
        CoTaskMemFree(stat.pwcsName);
        ReadElement(*element.Get(), package);
    }
    return package;
}

class ShownProgress final : public ProgressHandler {
public:
    HRESULT SetLimits(LONG min, LONG max) override
    {
        limits_.emplace_back(min, max);
        return S_OK;
    }
    HRESULT Progress(LONG count, LONG total) override
    {
        const bool fits = limits_ == std::vector<std::pair<long, long>>{{0, total}};
        shown_.emplace_back(fits ? count : -1, total);
        return S_OK;
    }
    std::vector<std::pair<long, long>> Shown() const { return shown_; }

private:
    std::vector<std::pair<long, long>> limits_;
    std::vector<std::pair<long, long>> shown_;
};

// Hides what wasn't changed since some time.
class Since final : public RestrictHandler {
public:
    HRESULT RestrictTable(IDispatch* table) override
    {
        if (!time)
            return S_OK;
        ComPtr<IItemsCol> items;
        ComPtr<IUnknown> raw;
        ComPtr<IMAPITable> contents;
        Check(QueryFor(table, items), "restrict a table");
        Check(items->get_RawTable(raw.Put()), "restrict a table");
        Check(raw.As(contents), "restrict a table");
        SPropValue value{};
        value.ulPropTag = PR_LAST_MODIFICATION_TIME;
        value.Value.ft = FromTicks(std::stoull(*time));
        SRestriction restriction{};
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty = {RELOP_GE, PR_LAST_MODIFICATION_TIME, &value};
        return contents->Restrict(&restriction, 0);
    }

    std::optional<std::string> time;  // none: hides nothing
};

// A job that tells that it runs, and when it is asked to give up.
class Watcher final : public IWorkingThread {
public:
    struct Told {
        Event running;
        Event stopped;
    };
    explicit Watcher(std::shared_ptr<Told> told) : told_(std::move(told)) {}
    DWORD ThreadProc(Event& stop) override
    {
        static_cast<void>(told_->running.Set());
        stop.Wait();
        static_cast<void>(told_->stopped.Set());
        return 0;
    }

private:
    const std::shared_ptr<Told> told_;
};

// A restriction that nobody asks.
class Unasked final : public RestrictHandler {
public:
    HRESULT RestrictTable(IDispatch*) override { return E_UNEXPECTED; }
};
Unasked unasked;

std::string TextOf(sqlite3_stmt* row, int column)
{
    const auto* const found = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
    return found ? found : "";
}

Answer TakeAnswer(std::map<EntryId, Answer>& answers, const EntryId& entryId)
{
    const auto answer = answers.extract(entryId);
    return answer ? answer.mapped() : Answer::Accept;
}

}  // namespace

World::World(bool shortTermIds, bool tellsOfTablesOnly, const std::vector<ULONG>& dropped)
{
    SPropValue value{};
    value.ulPropTag = kPrMessageStoreShortTermIds;
    value.Value.b = shortTermIds;
    Check(mailbox_.Store().SetProps(1, &value, nullptr), "set a store's property");
    switches_ = mailbox_.StoreSwitches();
    Check(switches_->DropColumns(static_cast<ULONG>(dropped.size()), dropped.data()), "drop columns");
    Check(switches_->TellOfTablesOnly(tellsOfTablesOnly), "tell of tables");
    Check(switches_->HoldNotifications(TRUE), "hold notifications");
    for (const char* const name : {"Left", "Right", "Elsewhere"})
        folders_.push_back(mailbox_.MakeFolder(name));
    if (sqlite3_open(mailbox_.DatabasePath().c_str(), &database_) != SQLITE_OK)
        throw std::runtime_error("open the sharing database");
    LogOn();
}

World::~World()
{
    sqlite3_close(database_);
}

std::vector<ULONG> World::AllColumns()
{
    const test::TestMailbox mailbox;
    ComPtr<IMAPITable> table;
    LPSPropTagArray tags = nullptr;
    Check(mailbox.MakeFolder("Any").Folder().GetContentsTable(0, table.Put()), "open a table");
    Check(table->QueryColumns(TBL_ALL_COLUMNS, &tags), "list the columns");
    std::vector<ULONG> columns(tags->aulPropTag, tags->aulPropTag + tags->cValues);
    MAPIFreeBuffer(tags);
    return columns;
}

void World::LogOn()
{
    static const WithoutPauses withoutPauses;
    ComPtr<ILibrary> library;
    Check(MakeComObject<CLibrary>().As(library), "make the library");
    logon_ = std::make_unique<test::TestLogon>(mailbox_, std::move(library));
    // Asked while the test waits for the engine.
    logon_->Host().AnswerWith([this](const test::HostEvent& event, bool& ignore) {
        if (event.what == "resend" && ++resent_ == cancelAt_)
            CancelResends();
        const Answer answer = TakeAnswer(answers_, event.entryId);
        ignore = answer == Answer::Ignore;
        return answer == Answer::Fail ? E_ABORT : S_OK;
    });
    for (unsigned folder = 0; folder < kFolders; ++folder)
        shared_[folder] = logon_->Share(FolderOf(folder), FolderIds()[folder]);
}

void World::EndSession(bool forgets)
{
    shared_ = {};
    logon_.reset();
    for (unsigned folder = 0; forgets && folder < kFolders; ++folder)
        std::filesystem::remove(HashFile(folder));
    LogOn();
}

std::filesystem::path World::HashFile(unsigned folder) const
{
    return mailbox_.Directory() / "qvdata" / "share" / (FolderIds().at(folder) + ".dat");
}

EntryId World::Add(unsigned folder, const std::string& subject)
{
    ComPtr<IMessage> message;
    Check(FolderOf(folder).Folder().CreateMessage(nullptr, 0, message.Put()), "make a mail");
    SetSubject(*message.Get(), subject);
    return EntryIdOf(*message.Get());
}

void World::Edit(const EntryId& entryId, const std::string& subject)
{
    SetSubject(*folders_[0].Open(entryId, MAPI_MODIFY).Get(), subject);
}

void World::MarkRead(const EntryId& entryId, unsigned folder, bool read)
{
    OneMail mail(entryId);
    Check(FolderOf(folder).Folder().SetReadFlags(mail.List(), 0, nullptr,
                                                 read ? SUPPRESS_RECEIPT : CLEAR_READ_FLAG),
          "mark a mail");
}

void World::Move(const EntryId& entryId, unsigned from, unsigned to)
{
    OneMail mail(entryId);
    Check(FolderOf(from).Folder().CopyMessages(mail.List(), nullptr, &FolderOf(to).Folder(), 0, nullptr,
                                               MESSAGE_MOVE),
          "move a mail");
}

EntryId World::Copy(const EntryId& entryId, unsigned from, unsigned to)
{
    OneMail mail(entryId);
    Check(FolderOf(from).Folder().CopyMessages(mail.List(), nullptr, &FolderOf(to).Folder(), 0, nullptr, 0),
          "copy a mail");
    // The newest is the last.
    ComPtr<IMAPITable> table;
    LPSRowSet rows = nullptr;
    Check(FolderOf(to).Folder().GetContentsTable(0, table.Put()), "open a table");
    SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
    Check(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), "choose a column");
    Check(table->SeekRow(BOOKMARK_END, -1, nullptr), "find the copy");
    Check(table->QueryRows(1, 0, &rows), "find the copy");
    const EntryId shown = test::HexOf(rows->aRow[0].lpProps[0].Value.bin);
    FreeProws(rows);
    return EntryIdOf(*folders_[0].Open(shown).Get());
}

void World::Delete(const EntryId& entryId, unsigned folder)
{
    FolderOf(folder).Delete(entryId);
}

void World::Describe(const EntryId& entryId, Mail& mail)
{
    SizedSPropTagArray(2, tags) = {2, {PR_LAST_MODIFICATION_TIME, PR_MESSAGE_FLAGS}};
    LPSPropValue values = nullptr;
    ULONG count = 0;
    Check(folders_[0].Open(entryId)->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &values),
          "read a mail");
    mail.time = std::to_string(ToTicks(values[0].Value.ft));
    mail.flags = values[1].Value.l;
    MAPIFreeBuffer(values);
}

void World::Lock(const EntryId& entryId, bool autoUnlock)
{
    Check(logon_->Session().LockItem(Text(entryId).Get(), Text(StoreId()).Get(),
                                     autoUnlock ? VARIANT_TRUE : VARIANT_FALSE),
          "lock an item");
}

HRESULT World::Unlock(const EntryId& entryId)
{
    return logon_->Session().UnlockItem(Text(entryId).Get(), Text(StoreId()).Get());
}

bool World::IsLocked(const EntryId& entryId)
{
    VARIANT_BOOL locked = VARIANT_FALSE;
    Check(logon_->Session().IsItemLocked(Text(entryId).Get(), Text(StoreId()).Get(), &locked),
          "ask for a lock");
    return locked == VARIANT_TRUE;
}

void World::Suspend(unsigned folder, bool suspended)
{
    Check(shared_.at(folder)->put_IgnoreEvents(suspended ? VARIANT_TRUE : VARIANT_FALSE), "suspend a folder");
}

void World::Restrict(unsigned folder)
{
    // The folder keeps a reference for good.
    static RestrictCallback* const restriction = MakeComObject<RestrictCallback>(unasked).Detach();
    Check(shared_.at(folder)->put_Restriction(restriction), "restrict a folder");
}

void World::AnswerNext(const EntryId& entryId, Answer answer)
{
    answers_[entryId] = answer;
}

unsigned World::Deliver(unsigned folder, unsigned seed)
{
    ULONG told = 0;
    Check(switches_->ShuffleNotifications(seed), "shuffle the notifications");
    Check(switches_->Deliver(folder, &told), "deliver what a folder has to tell");
    static_cast<CSession2&>(logon_->Session()).Notifications()->WaitUntilEmpty();
    return told;
}

std::vector<Call> World::TakeCalls()
{
    std::vector<Call> calls;
    for (const test::HostEvent& event : logon_->Host().Events()) {
        const bool isResend = event.what == "resend";
        const long action = event.what == "added"     ? kAdded
                            : event.what == "changed" ? kModified
                            : event.what == "deleted" ? kDeleted
                                                      : event.action;
        if (action != event.action)
            throw std::runtime_error("an item of action " + std::to_string(event.action) + " is " +
                                     event.what);
        calls.push_back({event.entryId, event.id, event.action, isResend, isResend ? event.tag : ""});
    }
    logon_->Host().Forget();
    return calls;
}

std::vector<std::pair<long, long>> World::RunResend(const Resend& resend)
{
    // The engine keeps a reference for good.
    static Since since;
    static RestrictCallback* const restriction = MakeComObject<RestrictCallback>(since).Detach();
    since.time = resend.since;
    ShownProgress progress;
    const auto progressCallback = MakeComObject<ProgressCallback>(progress);
    const Bstr to = Text(Address(resend.to));
    const Variant all = Variant::Bool(resend.all);
    const Bstr jobText = Text(resend.job.value_or(""));
    const Variant job = resend.job ? Variant::Text(jobText.View()) : Variant::Missing();
    const Variant shown = Variant::Dispatch(progressCallback.Get());
    resent_ = 0;
    cancelAt_ = resend.cancelAt;
    IFolder& folder = *shared_.at(resend.folder).Get();
    Check(resend.isExtended ? folder.ResendEx(to.Get(), restriction, all.Raw(), job.Raw(), shown.Raw())
                            : folder.Resend(to.Get(), job.Raw(), all.Raw(), shown.Raw()),
          "resend a folder");
    // The job holds its progress until it's done.
    Check(test::Eventually([&] {
              progressCallback->AddRef();
              return progressCallback->Release() == 2;  // one in `shown`
          })
              ? S_OK
              : E_FAIL,
          "wait for a resend");
    return progress.Shown();
}

// Until every job has been told: who asks doesn't wait for that.
void World::CancelResends()
{
    const auto told = std::make_shared<Watcher::Told>();
    Check(told->running.Create(false), "make an event");
    Check(told->stopped.Create(false), "make an event");
    auto& session = static_cast<CSession2&>(logon_->Session());
    Check(session.ResendPool()->Add(std::make_unique<Watcher>(told)), "watch the pool");
    // One that still waits would be passed over.
    told->running.Wait();
    Check(logon_->Session().CancelResend(Variant::Missing().Raw()), "cancel");
    told->stopped.Wait();
}

std::string World::Address(const std::string& recipients) const
{
    for (unsigned folder = 0; folder < kFolders; ++folder) {
        if (recipients == FolderIds()[folder])
            return FolderOf(folder).EntryId();
    }
    return recipients;
}

std::vector<Job> World::Jobs()
{
    constexpr char kSelect[] =
        "SELECT JobID, FolderID, Recipients FROM tblUnfinishedResendJob ORDER BY rowid";
    std::vector<Job> jobs;
    Select(kSelect, [&](sqlite3_stmt* row) {
        jobs.push_back({TextOf(row, 0), TextOf(row, 1), TextOf(row, 2)});
    });
    return jobs;
}

std::map<EntryId, Row> World::Rows()
{
    constexpr char kSelect[] = "SELECT EntryID, ID, StoreID, LastModified, Version FROM tblItem";
    std::map<EntryId, Row> rows;
    Select(kSelect, [&](sqlite3_stmt* row) {
        if (!rows.emplace(TextOf(row, 0), Row{TextOf(row, 1), TextOf(row, 2), sqlite3_column_double(row, 3),
                                              sqlite3_column_double(row, 4)})
                 .second)
            throw std::runtime_error("two rows of one item");
    });
    return rows;
}

void World::Select(const char* sql, const std::function<void(sqlite3_stmt*)>& read)
{
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database_, sql, -1, &statement, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(database_));
    while (sqlite3_step(statement) == SQLITE_ROW)
        read(statement);
    sqlite3_finalize(statement);
}

std::map<EntryId, std::string> World::Hashes(unsigned folder) const
{
    const std::filesystem::path path = HashFile(folder);
    std::vector<BYTE> bytes(std::filesystem::exists(path) ? std::filesystem::file_size(path) : 0);
    std::ifstream(path, std::ios::binary)
        .read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    std::map<EntryId, std::string> hashes;
    for (size_t at = 0; at < bytes.size();) {
        const EntryId key = TextAt(bytes, at);
        hashes[key] = TextAt(bytes, at);
    }
    return hashes;
}

std::optional<Package> World::TakePackage(const std::string& recipients)
{
    const std::string address = Address(recipients);
    const auto path = test::FindPackage(*logon_, address);
    if (!path)
        return std::nullopt;
    const Package package = ReadPackage(*path);
    const Bstr key = Text(address);
    Check(logon_->StorageFiles()->Remove(Variant::Text(key.View()).Raw()), "take a package");
    std::filesystem::remove(*path);
    return package;
}

}  // namespace quorvane::model
