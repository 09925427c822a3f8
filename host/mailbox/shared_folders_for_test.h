// host/mailbox/shared_folders_for_test.h: members whose mailboxes are records alone, who tell each other of
// folders.
#ifndef QUORVANE_HOST_MAILBOX_SHARED_FOLDERS_FOR_TEST_H_
#define QUORVANE_HOST_MAILBOX_SHARED_FOLDERS_FOR_TEST_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/exchange/device_link.h"
#include "host/exchange/error.h"
#include "host/mailbox/records_for_test.h"
#include "host/mailbox/shared_folders.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

using Names = std::vector<std::string>;

// A mailbox's records, and what it would seal into packages.
struct Someone {
    Someone(const test::TestDirectory& directory, const std::string& who, const std::string& member = {})
        : name(member.empty() ? who : member), path(MakeTables((directory / (who + ".db")).string(), name))
    {}
    void Pin(const Someone& other)
    {
        const std::string card = exchange::WriteCard(other.keys, other.name, 1);
        peers.Pin(exchange::ReadCard(card, other.keys.Id()), card, other.name, "device");
        folders.Settle();
    }
    // The cards of all devices that folders told of were found.
    void Meet(const std::vector<Someone*>& others)
    {
        for (const Someone* other : others)
            if (const auto peer = peers.Find(other->keys.Id()); peer && !peer->card) {
                const std::string card = exchange::WriteCard(other->keys, other->name, 1);
                peers.NoteCard(exchange::ReadCard(card, other->keys.Id()), card);
            }
    }
    KnownFolder::State StateOf(std::size_t number = 0) { return folders.All().at(number).state; }
    Names Members(bool hasFolder) { return records.Members("{F}", hasFolder); }
    bool LetsTouch(const Someone& other) { return folders.IsDeviceOfFolder("{F}", other.keys.Id()); }
    ResendScope Owes(const Someone& other) { return records.FindResend("{F}", other.name).value().scope; }
    bool OwesNothing(const Someone& other) { return !records.FindResend("{F}", other.name); }

    const std::string name, path;
    const exchange::DeviceKeys keys;
    Records records{path};
    Peers peers{path};
    SharedFolders folders{path, keys};
};

class SharedFoldersTest : public ::testing::Test {
protected:
    SharedFoldersTest()
    {
        alice.folders.Found({"{F}", "00AB", "00CD", "Shared"});
        for (Someone* one : {&bob, &carol, &dave}) {
            alice.Pin(*one);
            one->Pin(alice);
        }
    }

    // What is to be told reaches those whom it is for, until nothing is.
    void Tell() { TellAmong({&alice, &bob, &carol, &dave}); }
    // The users of two devices of one member say so on each.
    static void LinkEach(Someone& one, Someone& other)
    {
        const auto link = [](Someone& by, Someone& whom) {
            const std::string card = exchange::WriteCard(
                whom.keys, whom.name, 2, {{by.keys.Signing(), AgreeToLink(whom.keys, by.keys.Signing())}});
            by.peers.Link(exchange::ReadCard(card, whom.keys.Id()), card);
        };
        link(one, other);
        link(other, one);
    }
    void TellAmong(const std::vector<Someone*>& all)
    {
        for (bool any = true; any;) {
            any = false;
            for (Someone* from : all) {
                from->Meet(all);
                for (const DueNote& note : from->folders.DueNotes()) {
                    any = true;
                    ++told;
                    from->folders.NoteTold(note, "/" + from->name + std::to_string(told));
                    for (Someone* to : all)
                        if (std::ranges::count(note.devices, exchange::TextOf(to->keys.Id())) > 0)
                            Deliver(*from, *to, note.bytes);
                }
            }
        }
    }
    // It is acknowledged, and refused ones are counted.
    void Deliver(Someone& from, Someone& to, const std::string& bytes)
    {
        to.Meet({&from});
        const auto peer = to.peers.Find(from.keys.Id());
        if (!peer || !peer->card)
            return;
        try {
            to.folders.Take(*peer, bytes);
        } catch (const exchange::Error&) {
            ++refused;
        }
        from.peers.NoteAcked(to.keys.Id(), ++acks, from.peers.LastSequence());
    }
    static void Accept(Someone& who)
    {
        const KnownFolder invitation = who.folders.Invitations().at(0);
        who.folders.Accept(invitation, {invitation.folderId, "00AA", "00CC", invitation.name});
    }
    void Share(const std::vector<Someone*>& with)
    {
        for (Someone* one : with) {
            alice.folders.Invite("{F}", one->name);
            Tell();
            Accept(*one);
            Tell();
        }
    }
    static exchange::FolderNote NoteOf(const DueNote& note) { return exchange::ReadFolderNote(note.bytes); }

    test::TestDirectory directory;
    Someone alice{directory, "alice"}, bob{directory, "bob"}, carol{directory, "carol"},
        dave{directory, "dave"};
    int told = 0, refused = 0;
    std::uint64_t acks = 0;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_SHARED_FOLDERS_FOR_TEST_H_
