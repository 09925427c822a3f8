#include "tests/late_bound/script_logon.h"

#include <stdexcept>

#include "tests/late_bound/engine_module.h"

#ifdef QUORVANE3_OBJECT_MODEL_H_
#error "this host has no types of the engine"
#endif

namespace quorvane::test {

ScriptLogon::ScriptLogon(const TestMailbox& mailbox)
    : host_(MakeComObject<ScriptHost>(mailbox.DatabasePath())),
      library_(EngineModule::Instance().Create("Library"))
{
    mailbox.Select();
    session_ = Automation(library_.Call("Logon", Pack(Variant::Dispatch(host_.Get()))));
}

Automation ScriptLogon::Share(const TestFolder& folder, const std::string& id) const
{
    const Automation folders(session_.Get("Folders"));
    return Automation(folders.Call("Add", Pack(TextValue(folder.EntryId()), TextValue(folder.StoreId())),
                                   Name(As("ID", TextValue(id)))));
}

std::filesystem::path ScriptLogon::TakePackage(const std::string& recipients) const
{
    const Automation files(session_.Get("StorageFiles"));
    const Automation file(files.Get("Item", Pack(TextValue(recipients))));
    const std::filesystem::path path = TextOf(file.Get("Path"));
    files.Call("Remove", Pack(TextValue(recipients)));
    return path;
}

void ScriptLogon::Process(const std::filesystem::path& package, const std::string& tag, bool pump) const
{
    session_.Call("ProcessStorageFile", Pack(TextValue(package.string()), TextValue(tag)));
    const bool done = Eventually([&] {
        if (pump)
            PumpApartmentCalls();
        return !std::filesystem::exists(package);
    });
    if (!done)
        throw std::runtime_error("the package is not done with");
}

}  // namespace quorvane::test
