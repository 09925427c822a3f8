#include "host/exchange/folder_note.h"

#include <gtest/gtest.h>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

namespace {

FolderNote SomeNote()
{
    FolderNote note{true, {}, "{F}", "Projects/2026", {"founding", "second"}};
    note.asked.bytes[3] = 7;
    return note;
}

TEST(FolderNoteTest, ANoteIsReadAsItWasWritten)
{
    EXPECT_EQ(ReadFolderNote(WriteFolderNote(SomeNote())), SomeNote());
}

TEST(FolderNoteTest, EachCutAndWhatHasMoreIsRefused)
{
    const std::string bytes = WriteFolderNote(SomeNote());
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_THROW(ReadFolderNote(std::string_view(bytes).substr(0, size)), Error) << size;
    EXPECT_THROW(ReadFolderNote(bytes + '\0'), Error);
}

TEST(FolderNoteTest, WhatIsMissingOrTooLongIsRefusedOnBothSides)
{
    const auto refuses = [](auto change) {
        FolderNote note = SomeNote();
        change(note);
        EXPECT_THROW(WriteFolderNote(note), Error);
    };
    refuses([](FolderNote& note) { note.folder.clear(); });
    refuses([](FolderNote& note) { note.folder.assign(257, 'f'); });
    refuses([](FolderNote& note) { note.name.clear(); });
    refuses([](FolderNote& note) { note.name.assign(kLongestFolderPath + 1, 'n'); });
    refuses([](FolderNote& note) { note.entries.clear(); });
    refuses([](FolderNote& note) { note.entries.assign(Membership::kMostEntries + 1, "e"); });
    refuses([](FolderNote& note) { note.entries[1].assign(kLongestEntry + 1, 'e'); });
    std::string bytes = WriteFolderNote(SomeNote());
    bytes[8] = 2;
    EXPECT_THROW(ReadFolderNote(bytes), Error);
    // The same from outside: an id of no letters.
    bytes = WriteFolderNote(SomeNote());
    bytes.erase(27, 3);
    bytes[25] = 0;
    EXPECT_THROW(ReadFolderNote(bytes), Error);
}

}  // namespace

}  // namespace quorvane::host::exchange
