#include "host/service/service_unit.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "host/base/errors.h"
#include "host/service/shell_text.h"
#include "host/service/tool_call.h"
#include "host/service/unit_template.h"

namespace quorvane::host {

namespace {

constexpr auto kLongestLook = std::chrono::seconds(5);
constexpr auto kLongestDeed = std::chrono::seconds(30);

// As systemd's own: what may stand in a unit's name, and isn't used for anything else there.
std::string Escaped(std::string_view path)
{
    constexpr std::string_view kPlain = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz:_.";
    std::string name;
    for (const char c : path) {
        const bool isPlain = kPlain.find(c) != std::string_view::npos && !(c == '.' && name.empty());
        char text[8] = {c, '\0'};
        if (c == '/')
            text[0] = '-';
        else if (!isPlain)
            std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(c));
        name += text;
    }
    return name;
}

// A word of ExecStart.
std::string UnitWord(const std::string& word)
{
    std::string quoted = "\"";
    for (const char c : word)
        quoted += (c == '"' || c == '\\' ? "\\" : c == '%' ? "%" : "") + std::string(1, c);
    return quoted + "\"";
}

constexpr std::string_view kStart = "ExecStart=quorvane ";

}  // namespace

std::string UnitNameOf(const std::filesystem::path& mailbox)
{
    std::string path;
    for (const auto& part : mailbox.relative_path())
        if (!part.empty())
            path += (path.empty() ? "" : "/") + part.string();
    return "quorvane@" + (path.empty() ? "-" : Escaped(path)) + ".service";
}

std::string UnitText(const std::filesystem::path& program)
{
    std::string text = kUnitTemplate;
    text.replace(text.find(kStart), kStart.size(), "ExecStart=" + UnitWord(program.string()) + " ");
    return "# Made by 'quorvane setup', which makes it anew where the program has moved.\n" +
           text.substr(text.find("[Unit]"));
}

UnitState ReadUnitState(std::string_view lines)
{
    UnitState state;
    std::string load, enabled;
    const std::array<std::pair<std::string_view, std::string*>, 6> keys{{{"LoadState", &load},
                                                                         {"UnitFileState", &enabled},
                                                                         {"FragmentPath", &state.file},
                                                                         {"ActiveState", &state.active},
                                                                         {"SubState", &state.sub},
                                                                         {"Result", &state.result}}};
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(line.size() + 1, lines.size()));
        const std::size_t sign = line.find('=');
        for (const auto& [key, value] : keys)
            if (sign != std::string_view::npos && line.substr(0, sign) == key)
                *value = line.substr(sign + 1);
    }
    state.isInstalled = load == "loaded";
    state.isEnabled = enabled == "enabled" || enabled == "enabled-runtime";
    return state;
}

Finding JudgeUnit(const std::string& unit, const std::optional<UnitState>& state, const std::string& setUp)
{
    const std::string word = ShellWord(unit);
    const auto with = [](Finding::State how, const std::string& what, const std::string& todo = {}) {
        return Finding{how, "service", what, todo};
    };
    if (!state)
        return with(Finding::State::kGood, "no systemd of this user is running that could begin a run");
    if (!state->isInstalled)
        return with(Finding::State::kNote, "no unit of systemd runs this mailbox", "have one: " + setUp);
    if (state->active == "failed" || state->IsRestarting())
        return with(Finding::State::kAct,
                    unit + (state->IsRestarting() ? " ends again and again" : " has failed") + " (" +
                        state->result + ")",
                    "see why: journalctl --user -u " + word);
    if (!state->isEnabled)
        return with(Finding::State::kNote, unit + " isn't enabled, and won't begin by itself",
                    "systemctl --user enable " + word);
    if (!state->IsUp())
        return with(Finding::State::kNote, unit + " is enabled, and isn't running",
                    "systemctl --user start " + word);
    return with(Finding::State::kGood, unit + " is enabled and running");
}

std::optional<UnitState> UserManager::Look(const std::string& unit) const
{
    const auto answer =
        CallTool({"systemctl", "--user", "show", "--property",
                  "LoadState,UnitFileState,FragmentPath,ActiveState,SubState,Result", "--", unit},
                 kLongestLook);
    if (!answer || answer->exitCode != 0)
        return std::nullopt;
    return ReadUnitState(answer->output);
}

void UserManager::Do(const std::vector<std::string>& words) const
{
    std::vector<std::string> command = {"systemctl", "--user"};
    command.insert(command.end(), words.begin(), words.end());
    const auto answer = CallTool(command, kLongestDeed);
    std::string line;
    for (const std::string& word : command)
        line += (line.empty() ? "" : " ") + ShellWord(word);
    if (!answer)
        Fail("do", line, "it didn't end");
    if (answer->exitCode != 0)
        Fail("do", line, answer->output.substr(0, answer->output.find('\n')));
}

}  // namespace quorvane::host
