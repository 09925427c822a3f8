// session/registration/classes_writer.h: writes into the registry of classes as a whole or not at all. On
// Windows alone.
#ifndef QUORVANE_ENGINE_SESSION_REGISTRATION_CLASSES_WRITER_H_
#define QUORVANE_ENGINE_SESSION_REGISTRATION_CLASSES_WRITER_H_

#include <vector>

#include "engine/session/registration/class_keys.h"

namespace quorvane {

// Notes how the registry was before each write. Unless the writes are kept, the destructor goes back from the
// last to the first: values get their former contents, keys that were made go with whatever is in them by
// then. For one thread.
class ClassesWriter {
public:
    ClassesWriter() noexcept = default;
    ClassesWriter(const ClassesWriter&) = delete;
    ClassesWriter& operator=(const ClassesWriter&) = delete;
    ~ClassesWriter();

    // Makes the key, with those above it, and sets its value. The code of the registry; E_OUTOFMEMORY.
    [[nodiscard]] HRESULT Write(const ClassesText& text) noexcept;
    void Keep() noexcept { steps_.clear(); }

private:
    // A value as it was.
    struct FormerValue {
        OleString name;
        bool existed = false;
        DWORD type = 0;
        std::vector<BYTE> bytes;
    };
    // A key that was made, or a value that was set in it.
    struct Step {
        OleString key;
        std::optional<FormerValue> value;
    };

    LSTATUS MakeKeys(const OleString& path, HKEY& last);
    LSTATUS MakeKey(OleString path, HKEY& key);
    LSTATUS SetValue(HKEY key, const ClassesText& text);
    static LSTATUS ReadValue(HKEY key, FormerValue& value);
    static void Undo(const Step& step) noexcept;

    std::vector<Step> steps_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_REGISTRATION_CLASSES_WRITER_H_
