#include "host/base/path_text.h"
#include "host/commands/command.h"
#include "host/exchange/error.h"
#include "host/sharing/pinning.h"

namespace quorvane::host {

namespace {

struct InitOptions {
    bool json = false;
    std::string mailbox;
    std::string name;
    std::string exchange;
};

// Others find the device in the exchange from now on.
void ShowItself(const Mailbox& mailbox, const std::string& directory)
{
    try {
        Transport transport(mailbox, PathOf(ChosenExchange(mailbox, directory)));
        PublishCard(transport, mailbox.Name());
    } catch (const exchange::Error& error) {
        throw HostError(error.what());
    }
}

ExitCode Init(const InitOptions& options)
{
    const std::string name =
        options.name.empty() ? PathOf(options.mailbox).lexically_normal().filename().string() : options.name;
    const Mailbox mailbox = Mailbox::Create(options.mailbox, name);
    const auto device = exchange::ParseDeviceId(mailbox.Device()).value_or(exchange::DeviceId{});
    Print(options.json,
          {{"mailbox", mailbox.Directory().string()},
           {"name", mailbox.Name()},
           {"device", mailbox.Device()},
           {"fingerprint", exchange::FingerprintOf(device)}},
          "made the mailbox " + mailbox.Directory().string() + " of " + mailbox.Name() + ", device " +
              ShownDevice(device) + "\n");
    if (!options.exchange.empty())
        ShowItself(mailbox, options.exchange);
    return ExitCode::kDone;
}

}  // namespace

void AddInitCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<InitOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "init", "Make a mailbox: message store, sharing database, keys, settings",
                   options, Init);
    command->add_option("MAILBOX", options->mailbox, "Directory to make")->required();
    command->add_option("--name", options->name,
                        "Name under which other members know the mailbox (default: the directory's name)");
    command->add_option(
        "--exchange", options->exchange,
        "Directory that every member can reach; the mailbox's card is laid there, and it is remembered");
}

}  // namespace quorvane::host
