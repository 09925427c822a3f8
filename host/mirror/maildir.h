// host/mirror/maildir.h: a Maildir that other programs work in at the same time, without locks.
//
// Nothing in it is followed, waited for, or replaced: names are opened beneath directories that are held
// open, links aren't taken, and a file gets a name only where nothing has it.
#ifndef QUORVANE_HOST_MIRROR_MAILDIR_H_
#define QUORVANE_HOST_MIRROR_MAILDIR_H_

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/mail/mail_bytes.h"
#include "host/mirror/plan.h"

namespace quorvane::host {

// An open descriptor, closed with its owner.
class Descriptor {
public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.number_) { other.number_ = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor();
    int Get() const noexcept { return number_; }
    explicit operator bool() const noexcept { return number_ >= 0; }

private:
    int number_;
};

// Methods throw a HostError for what the system can't do. For one thread.
class Maildir {
public:
    // How long a directory or a file must have been left alone until what was seen of it counts.
    struct Patience {
        std::chrono::milliseconds directory{50};
        std::chrono::milliseconds file{100};
    };

    explicit Maildir(std::filesystem::path path) : Maildir(std::move(path), Patience()) {}
    Maildir(std::filesystem::path path, Patience patience) : path_(std::move(path)), patience_(patience) {}

    // Makes one, where there is none or parts of it are missing.
    static void Make(const std::filesystem::path& path);

    // What is known of a file's bytes isn't read again.
    void Remember(const FileLook& look, const std::string& digest);

    // Opens the directories anew. Throws where one is missing, or is no directory.
    void Open();
    // Tells these directories from others that may get their names.
    std::string Identity() const;
    // What can be seen from outside: who adds, renames or removes a file changes it. Empty where there is
    // none.
    std::string OutsideLook() const;
    std::filesystem::path PathOfPart(const std::string& part) const { return path_ / part; }

    struct Listing {
        bool isSettled = false;  // no file was on its way meanwhile: what isn't among these isn't there
        bool isFresh = false;    // some were changed just now, and may be once more without looking changed
        std::vector<MailFile> files;
    };
    // The present moment, as List takes it.
    static std::int64_t Now();
    // All files of new/ and cur/, but hidden ones. What isn't a mail, or can't be read, has its problem.
    //
    // since  when the look began that this is a part of: where a file was on its way since, it isn't settled.
    Listing List(std::int64_t since);

    // Reads a file that is still what it was when it was listed; false where it isn't.
    bool Read(const MailFile& file, MailBytes& bytes) const;

    // A file that was changed in the last minute may not be on the disk yet: it is when this returns. True
    // where it may not have been, its name either.
    bool SyncNew(const MailFile& file) const;

    // A file that is being written in tmp/; it goes with this unless it was delivered.
    class NewFile {
    public:
        NewFile(NewFile&&) noexcept = default;
        ~NewFile();
        std::ostream& Stream() noexcept { return *stream_; }
        // All was written, and is on the disk: the digest of it. Throws where something failed.
        std::string Finish();
        // What it looks like under whatever name, once all was written.
        FileLook Look() const;

    private:
        friend class Maildir;
        NewFile(int directory, std::string name);
        class Buffer;

        int directory_;
        std::string name_;
        std::unique_ptr<Buffer> buffer_;
        std::unique_ptr<std::ostream> stream_;
    };
    NewFile Begin(const std::string& base) const;
    // Gives it a name. False where something has it.
    bool Deliver(NewFile& file, const std::string& part, const std::string& name) const;

    enum class Renamed { kDone, kGone, kTaken, kOtherDisk };
    // Renames a file, within this Maildir or into another.
    Renamed Rename(const MailFile& file, const Maildir& to, const std::string& part,
                   const std::string& name) const;
    // Removes a file that is still what it was when it was listed; false where it isn't.
    bool Remove(const MailFile& file) const;
    // What was done to names is on the disk when this returns.
    void Sync() const;
    // What an earlier run left in tmp/: files that weren't delivered go, those that were about to be removed
    // are put back.
    void TidyUp() const;

private:
    struct Seen {
        FileLook look;
        std::string digest;
        std::string problem;
    };

    int PartOf(const std::string& part) const;
    void ListPart(const std::string& part, Listing& listing);
    bool Examine(MailFile& file, Listing& listing);
    static bool IsYoung(std::int64_t time, std::int64_t now, std::chrono::milliseconds patience);
    std::int64_t TimeOfParts() const;

    std::filesystem::path path_;
    Patience patience_;
    Descriptor new_;
    Descriptor cur_;
    Descriptor tmp_;
    std::unordered_map<std::uint64_t, Seen> seen_;  // by inode
    std::unordered_map<std::uint64_t, Seen> now_;   // of the listing that is being made
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_MAILDIR_H_
