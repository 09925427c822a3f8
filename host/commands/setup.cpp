#include <algorithm>
#include <iostream>
#include <system_error>

#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/base/terminal.h"
#include "host/commands/command.h"
#include "host/commands/mirroring.h"
#include "host/exchange/error.h"
#include "host/service/questions.h"
#include "host/service/setup_plan.h"
#include "host/service/shell_text.h"
#include "host/service/user_places.h"
#include "host/sharing/pinning.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

struct SetupOptions {
    bool json = false;
    std::string mailbox;
    std::string name;
    std::string mail;
    std::string exchange;
    std::string exchangeMode;
    bool noMail = false;
    bool noService = false;
    bool yes = false;
};

constexpr char kNone[] = "none";
constexpr char kLater[] = "later";

std::string AbsolutePath(const std::string& text)
{
    std::error_code error;
    const fs::path path = fs::absolute(PathOf(text), error).lexically_normal();
    return error ? text : (path.has_filename() ? path : path.parent_path()).string();
}

// A path that a person typed where no shell read it.
std::string TypedPath(const std::string& text, const fs::path& home)
{
    const bool isHome = text == "~" || text.starts_with("~/");
    return AbsolutePath(isHome ? home.string() + text.substr(1) : text);
}

bool IsDirectoryAt(const std::string& path)
{
    std::error_code error;
    return fs::is_directory(PathOf(path), error);
}

std::string MailText(const FoundMail& mail)
{
    return mail.root + ", " + Counted(mail.mails, "mail") + " in " + Counted(mail.ties.size(), "folder");
}

// What is there before anything is done, the unit apart.
SetupState LookAt(const std::string& directory)
{
    SetupState state;
    state.hasMailbox = Mailbox::IsThere(directory);
    if (!state.hasMailbox)
        return state;
    const Mailbox mailbox = Mailbox::Open(directory);
    state.name = mailbox.Name();
    state.exchange = ChosenExchange(mailbox, {});
    std::error_code error;
    state.hasCard = !state.exchange.empty() &&
                    fs::exists(PathOf(state.exchange) / PathOf(mailbox.Device()) / "card", error);
    state.ties = TiesOf(mailbox);
    state.isRunning = mailbox.IsInRun();
    return state;
}

// Puts together what is wanted: by options, by what is there already, by the person's answers, and with --yes
// by what would be proposed.
class Interview {
public:
    Interview(const SetupOptions& options, const UserPlaces& user, const SetupState& state)
        : options_(options), user_(user), state_(state)
    {}

    SetupAnswers Hold(const std::string& mailbox)
    {
        SetupAnswers answers;
        answers.mailbox = mailbox;
        answers.wantsService = !options_.noService;
        answers.name = Name();
        answers.ties = Ties();
        answers.exchange = Exchange();
        return answers;
    }
    // Whether anything was asked.
    bool HasAsked() const noexcept { return hasAsked_; }
    // Throws a HostError where the person doesn't want it.
    void Confirm(const std::string& plan)
    {
        std::cerr << plan;
        if (!questions_.Confirm("Do that"))
            throw HostError("nothing was made, as it wasn't wanted");
    }

private:
    using Judge = std::function<std::string(const std::string&)>;

    std::string Ask(const std::string& question, const std::string& proposed, const Judge& judge)
    {
        if (options_.yes)
            return proposed;
        hasAsked_ = true;
        return questions_.Ask(question, proposed, judge);
    }

    std::string Name()
    {
        const Judge judge = [](const std::string& answer) {
            return IsMemberName(answer) ? std::string()
                                        : "a name has letters, digits, '.', '-', '_' and '@', at most 64";
        };
        if (!options_.name.empty()) {
            if (const std::string fault = judge(options_.name); !fault.empty())
                throw HostError("cannot set up a mailbox for '" + options_.name + "': " + fault,
                                ExitCode::kUsage);
            return options_.name;
        }
        return state_.hasMailbox
                   ? state_.name
                   : Ask("Your name, as others are to know you", MemberNameLike(user_.name), judge);
    }

    std::vector<MailTie> Ties()
    {
        if (!options_.mail.empty()) {
            const auto mail = MailIn(PathOf(options_.mail));
            if (!mail)
                Fail("find mail in", options_.mail, "there is no Maildir");
            return mail->ties;
        }
        if (options_.noMail || !HasMirrors() || !state_.ties.empty())
            return state_.ties;
        return AskForMail();
    }

    std::vector<MailTie> AskForMail()
    {
        const std::vector<FoundMail> places =
            FindMail(user_.home, PathOf(UserVariable("MAILDIR").value_or("")));
        if (!options_.yes)
            for (const FoundMail& place : places)
                std::cerr << "There is mail in " << Printable(MailText(place)) << "\n";
        std::optional<FoundMail> mail;
        const std::string answer =
            Ask("A Maildir, or a directory with some, to keep in step with folders here ('none' for none)",
                places.empty() ? kNone : places.front().root, [&](const std::string& typed) {
                    mail = MailIn(TypedPath(typed, user_.home));
                    return typed == kNone || mail ? std::string() : "there is no Maildir in " + typed;
                });
        if (answer == kNone)
            return {};
        return mail ? mail->ties : places.front().ties;
    }

    std::string Exchange()
    {
        if (!options_.exchange.empty()) {
            if (!IsDirectoryAt(options_.exchange))
                Fail("use the exchange", options_.exchange, "there is no such directory");
            return AbsolutePath(options_.exchange);
        }
        if (!state_.exchange.empty())
            return state_.exchange;
        const std::string answer =
            Ask("The exchange, a directory that the others can reach too ('later' if there is none yet)",
                kLater, [&](const std::string& typed) {
                    return typed == kLater || IsDirectoryAt(TypedPath(typed, user_.home))
                               ? std::string()
                               : "there is no such directory";
                });
        return answer == kLater ? std::string() : TypedPath(answer, user_.home);
    }

    const SetupOptions& options_;
    const UserPlaces& user_;
    const SetupState& state_;
    Questions questions_{std::cin, std::cerr, ErrorWidth()};
    bool hasAsked_ = false;
};

// Carries a plan out, step by step.
class Setup {
public:
    Setup(const SetupOptions& options, const UserPlaces& user)
        : options_(options),
          user_(user),
          directory_(options.mailbox.empty() ? (user.home / "quorvane").string()
                                             : AbsolutePath(options.mailbox)),
          unit_(UnitNameOf(PathOf(directory_)))
    {}

    void Decide()
    {
        SetupState state = LookAt(directory_);
        Interview interview(options_, user_, state);
        answers_ = interview.Hold(directory_);
        if (answers_.wantsService)
            LookAtUnit(state);
        steps_ = PlanSetup(answers_, state, UnitText(user_.program));
        if (interview.HasAsked())
            interview.Confirm(Text(Look{ErrorWidth(), false}));
    }
    void CarryOut()
    {
        for (SetupStep& step : steps_)
            if (StateOf(step) == kToDo) {
                Do(step);
                if (step.kind != Kind::kTie)
                    made_.push_back(&step);
            }
    }
    void PrintResult() const
    {
        const Mailbox mailbox = Mailbox::Open(directory_);
        const auto device = exchange::ParseDeviceId(mailbox.Device()).value_or(exchange::DeviceId{});
        Json steps = Json::array();
        for (const SetupStep& step : steps_)
            steps.push_back({{"step", SetupStepName(step.kind)},
                             {"what", What(step)},
                             {"state", StateOf(step)},
                             {"why", step.why}});
        std::string text = Text(OutputLook()) + "\n" +
                           Folded("your device is " + ShownDevice(device), OutputWidth(), 2) +
                           "\nwhat comes next:\n";
        Json next = Json::array();
        for (const auto& [command, why] : Next()) {
            next.push_back({{"command", command}, {"why", why}});
            text += "  " + Printable(command) + "\n      " + why + "\n";
        }
        Print(options_.json,
              {{"mailbox", directory_},
               {"name", mailbox.Name()},
               {"device", mailbox.Device()},
               {"fingerprint", exchange::FingerprintOf(device)},
               {"exchange", answers_.exchange},
               {"unit", IsServed() ? unit_ : ""},
               {"steps", steps},
               {"next", next}},
              text);
    }

private:
    using Kind = SetupStep::Kind;

    void LookAtUnit(SetupState& state) const
    {
        state.unit = UserManager().Look(unit_);
        state.unitFile = UnitFile().string();
        std::error_code error;
        if (fs::exists(UnitFile(), error))
            state.unitText = ReadWhole(UnitFile(), kLongestUnit);
    }
    fs::path UnitFile() const { return user_.units / unit_; }

    // All ties are made as one: those of a half wouldn't be told from those that somebody chose.
    void TieAll()
    {
        std::vector<MailTie> ties;
        for (const SetupStep& step : steps_)
            if (step.kind == Kind::kTie && StateOf(step) == kToDo) {
                ties.push_back(step.tie);
                made_.push_back(&step);
            }
        TieFolders(Mailbox::Open(directory_), ties);
    }

    void Do(const SetupStep& step)
    {
        switch (step.kind) {
            case Kind::kMailbox:
                Mailbox::Create(directory_, answers_.name);
                return;
            case Kind::kExchange:
                return ShowInExchange(Mailbox::Open(directory_), answers_.exchange, options_.exchangeMode);
            case Kind::kTie:
                return TieAll();
            case Kind::kUnit:
                MakeDirectory(user_.units);
                WriteDurably(UnitFile(), UnitText(user_.program));
                return UserManager().Do({"daemon-reload"});
            case Kind::kEnable:
                return UserManager().Do({"enable", "--", unit_});
            case Kind::kStart:
                return UserManager().Do({"start", "--no-block", "--", unit_});
        }
    }

    std::string What(const SetupStep& step) const
    {
        switch (step.kind) {
            case Kind::kMailbox:
                return directory_ + " of " + answers_.name;
            case Kind::kExchange:
                return answers_.exchange;
            case Kind::kTie:
                return step.tie.folder + " in " + step.tie.maildir;
            default:
                return unit_;
        }
    }
    std::string_view StateOf(const SetupStep& step) const
    {
        if (step.state == SetupStep::State::kLeftOut)
            return "left out";
        if (step.state == SetupStep::State::kDone)
            return "was done";
        return std::find(made_.begin(), made_.end(), &step) == made_.end() ? kToDo : "done";
    }
    std::string Text(const Look& look) const
    {
        Table table({"STEP", "STATE", {"WHAT", Fit::kFolded}});
        for (const SetupStep& step : steps_)
            table.Add({SetupStepName(step.kind), std::string(StateOf(step)),
                       Printable(step.why.empty() ? What(step) : step.why)});
        return table.Text(look);
    }

    // Whether systemd is to run it.
    bool IsServed() const
    {
        return std::any_of(steps_.begin(), steps_.end(),
                           [](const SetupStep& step) { return step.kind == Kind::kEnable; });
    }
    // Command lines, each with what it is for.
    std::vector<std::pair<std::string, std::string>> Next() const
    {
        const std::string mailbox = ShellWord(options_.mailbox.empty() ? directory_ : options_.mailbox);
        std::vector<std::pair<std::string, std::string>> next;
        if (answers_.exchange.empty())
            next.emplace_back("quorvane setup " + mailbox + " --exchange DIRECTORY",
                              "once there is a directory that the others can reach too");
        else if (!IsServed())
            next.emplace_back("quorvane run " + mailbox, "sends, takes and mirrors, until Ctrl-C");
        else
            next.emplace_back("loginctl enable-linger", "lets it run while you aren't logged on, too");
        next.emplace_back("quorvane share " + mailbox + " FOLDER --with NAME",
                          "shares a folder with somebody, whom the run invites");
        next.emplace_back("quorvane members add " + mailbox + " NAME",
                          "makes somebody known who is to share folders with you");
        next.emplace_back("quorvane invitations " + mailbox, "tells what others share with you");
        next.emplace_back("quorvane doctor " + mailbox, "tells whether anything needs you");
        return next;
    }

    static constexpr std::string_view kToDo = "to do";
    static constexpr std::uintmax_t kLongestUnit = 1 << 20;

    const SetupOptions& options_;
    const UserPlaces& user_;
    const std::string directory_;
    const std::string unit_;
    SetupAnswers answers_;
    std::vector<SetupStep> steps_;
    std::vector<const SetupStep*> made_;  // by this process
};

ExitCode SetUp(const SetupOptions& options)
{
    const UserPlaces user = FindUserPlaces();
    Setup setup(options, user);
    setup.Decide();
    setup.CarryOut();
    setup.PrintResult();
    return ExitCode::kDone;
}

}  // namespace

void AddSetupCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<SetupOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "setup",
        "Make a mailbox ready for daily use: ask for what isn't said by options, make the mailbox, tie it to the "
        "mail that is there, and have systemd run it. Said again, it goes on where it was cut short",
        options, SetUp);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox (default: ~/quorvane)");
    command->add_option("--name", options->name,
                        "Name under which other members know you (default: the one that you log on under)");
    CLI::Option* const mail = command->add_option(
        "--mail", options->mail,
        "A Maildir, or a directory with some in it, whose mails are kept in step with folders of the mailbox "
        "(default: $MAILDIR, ~/Maildir, ~/Mail, ~/mail or ~/.mail)");
    command->add_flag("--no-mail", options->noMail, "Tie no Maildir")->excludes(mail);
    command->add_option("--exchange", options->exchange,
                        "Directory that every member can reach; it is remembered");
    AddExchangeMode(*command, options->exchangeMode);
    command->add_flag("--no-service", options->noService, "Don't have systemd run it");
    command->add_flag("-y,--yes", options->yes, "Ask nothing: what isn't said is as it would be proposed");
}

}  // namespace quorvane::host
