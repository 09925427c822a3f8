// The mail client in the registry's files: who reads them, and what a person wrote into them.
#include <sys/inotify.h>
#include <unistd.h>

#include "engine/storeaccess/mapi_binding.h"
#include "engine/storeaccess/testing/binding_test.h"

namespace quorvane {
namespace {

using testing::kFromComponent;

class MapiBindingFilesTest : public testing::BindingTest {
protected:
    std::filesystem::path UserFile() const { return directory / "quorvane3" / "registry.reg"; }
    std::filesystem::path MachineFile() const { return directory / "machine.reg"; }
};

TEST_F(MapiBindingFilesTest, ARegistryFileThatAPersonWroteNamesTheClient)
{
    std::filesystem::create_directories(UserFile().parent_path());
    std::ofstream(UserFile()) << "Windows Registry Editor Version 5.00\r\n\r\n"
                                 "[HKEY_CURRENT_USER\\Software\\Clients\\Mail]\r\n@=\"Client\"\r\n\r\n"
                                 "[HKEY_CURRENT_USER\\SOFTWARE\\Clients\\Mail\\CLIENT]\r\n"
                                 "\"MSIComponentID\"=\"{C}\"\r\n\"MSIOfficeLCID\"=\"1031\"\r\n";
    ComponentLiesUnder("1031");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{C}/1031/260/1 "; });
}

// Tells whether a file is opened while it looks.
class OpenWatch {
public:
    explicit OpenWatch(const std::filesystem::path& file) : queue_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        EXPECT_GE(inotify_add_watch(queue_, file.c_str(), IN_OPEN), 0);
    }
    OpenWatch(const OpenWatch&) = delete;
    OpenWatch& operator=(const OpenWatch&) = delete;
    ~OpenWatch() { close(queue_); }

    bool WasOpened() const
    {
        char events[4096];
        return read(queue_, events, sizeof(events)) > 0;
    }

private:
    int queue_;
};

TEST_F(MapiBindingFilesTest, WithAClientOfTheUsersTheMachinesHiveIsNotRead)
{
    InstallClient(RegistryHive::LocalMachine, "Theirs", "{T}");
    const OpenWatch machine(MachineFile());
    MailClientMsiValues values;

    ReadMailClientMsiValues(values);
    EXPECT_TRUE(machine.WasOpened());
    InstallClient(RegistryHive::CurrentUser, "Mine", "");
    ReadMailClientMsiValues(values);

    EXPECT_FALSE(machine.WasOpened());
    EXPECT_STREQ(values.component.data(), "");
}

}  // namespace
}  // namespace quorvane
