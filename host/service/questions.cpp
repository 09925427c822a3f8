#include "host/service/questions.h"

#include "host/base/errors.h"
#include "host/base/output.h"

namespace quorvane::host {

namespace {

std::string Trimmed(const std::string& text)
{
    constexpr char kBlanks[] = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

std::string Questions::Ask(const std::string& question, const std::string& proposed,
                           const std::function<std::string(const std::string&)>& judge)
{
    for (;;) {
        out_ << Folded(Printable(question) + " [" + Printable(proposed) + "]:", width_, 2) << " "
             << std::flush;
        std::string line;
        if (!std::getline(in_, line)) {
            out_ << std::endl;
            throw HostError("the answers ended at '" + question + "', and nothing was made");
        }
        const std::string answer = Trimmed(line).empty() ? proposed : Trimmed(line);
        const std::string fault = judge(answer);
        if (fault.empty())
            return answer;
        out_ << Folded("  " + Printable(fault), width_, 2) << "\n";
    }
}

bool Questions::Confirm(const std::string& question)
{
    const auto isYes = [](const std::string& answer) { return answer == "yes" || answer == "y"; };
    return isYes(Ask(question, "yes", [&](const std::string& answer) {
        return isYes(answer) || answer == "no" || answer == "n" ? std::string() : "say yes or no";
    }));
}

}  // namespace quorvane::host
