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
    std::string exchangeMode;
};

ExitCode Init(const InitOptions& options)
{
    const std::string name =
        options.name.empty() ? PathOf(options.mailbox).lexically_normal().filename().string() : options.name;
    const Mailbox mailbox = Mailbox::Create(options.mailbox, name);
    const auto device = exchange::ParseDeviceId(mailbox.Device()).value_or(exchange::DeviceId{});
    PrintSentences(options.json,
                   {{"mailbox", mailbox.Directory().string()},
                    {"name", mailbox.Name()},
                    {"device", mailbox.Device()},
                    {"fingerprint", exchange::FingerprintOf(device)}},
                   "made the mailbox " + mailbox.Directory().string() + " of " + mailbox.Name() +
                       ", device " + ShownDevice(device) + "\n");
    if (!options.exchange.empty())
        ShowInExchange(mailbox, options.exchange, options.exchangeMode);
    return ExitCode::kDone;
}

}  // namespace

void ShowInExchange(const Mailbox& mailbox, const std::string& exchange, const std::string& exchangeMode)
{
    try {
        ChooseExchangeMode(mailbox, exchange, exchangeMode);
        Transport transport(mailbox, PathOf(ChosenExchange(mailbox, exchange)));
        PublishCard(transport, mailbox.Name());
    } catch (const exchange::Error& error) {
        throw HostError(error.what());
    }
}

CLI::Option* AddExchangeMode(CLI::App& command, std::string& mode)
{
    return command
        .add_option(
            "--exchange-mode", mode,
            "Who else may read what is laid in the exchange, as its files' mode: 0600 nobody, 0640 the "
            "group (what holds if nothing was said), 0644 everybody; remembered")
        ->check(CLI::IsMember(std::vector<std::string>(kExchangeModes.begin(), kExchangeModes.end())));
}

void AddInitCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<InitOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "init", "Make a mailbox: message store, sharing database, keys, settings",
                   options, Init);
    command->add_option("MAILBOX", options->mailbox, "Directory to make")->required();
    command->add_option("--name", options->name,
                        "Name under which other members know the mailbox (default: the directory's name)");
    CLI::Option* const exchange = command->add_option(
        "--exchange", options->exchange,
        "Directory that every member can reach; the mailbox's card is laid there, and it is remembered");
    AddExchangeMode(*command, options->exchangeMode)->needs(exchange);
}

}  // namespace quorvane::host
