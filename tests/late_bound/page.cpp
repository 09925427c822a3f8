#include "tests/late_bound/page.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <stdexcept>

namespace quorvane::test {

namespace {

GUID GuidOf(const std::string& text)
{
    GUID guid{};
    if (FAILED(CLSIDFromString(FromUtf8(text).c_str(), &guid)))
        throw std::runtime_error("no identifier: " + text);
    return guid;
}

std::vector<PageArgument> ArgumentsOf(const std::string& list)
{
    static const std::regex form(R"((?:\[([^\]]*)\] )?([A-Za-z0-9_]+(?:\(VARIANT\))?\**) (\w+))");
    std::vector<PageArgument> arguments;
    for (std::sregex_iterator each(list.begin(), list.end(), form), end; each != end; ++each)
        arguments.push_back({(*each)[1], (*each)[2], (*each)[3]});
    return arguments;
}

template <class Entry>
const Entry& Named(const std::vector<Entry>& entries, const std::string& name)
{
    const auto found = std::ranges::find(entries, name, &Entry::name);
    if (found == entries.end())
        throw std::runtime_error("the page has no " + name);
    return *found;
}

}  // namespace

size_t PageOperation::ArgumentCount() const
{
    return arguments.size() - static_cast<size_t>(std::ranges::count_if(arguments, &PageArgument::IsResult));
}

size_t PageOperation::RequiredCount() const
{
    return ArgumentCount() - static_cast<size_t>(std::ranges::count_if(arguments, &PageArgument::IsOptional));
}

const Page& Page::Instance()
{
    static const Page page;
    return page;
}

Page::Page()
{
    std::ifstream file(QUORVANE_OBJECT_MODEL_PAGE);
    for (std::string line; std::getline(file, line);)
        ReadLine(line);
    if (interfaces_.empty() || classes_.empty())
        throw std::runtime_error("the page is empty");
}

void Page::ReadLine(const std::string& line)
{
    static const std::regex type(R"((dual|callback|source) (\w+) (\{.*\}))");
    static const std::regex operation(R"(  (?:slot \d+ )?id (-?\d+) (\w+) (\w+)\((.*?)\)(?: ".*")?)");
    static const std::regex coclass(R"(class (\w+) (\{.*\}) default (\w+)(?: source (\w+))? threading .*)");
    std::smatch part;
    if (std::regex_match(line, part, type))
        interfaces_.push_back({part[1], part[2], GuidOf(part[3]), {}});
    else if (std::regex_match(line, part, operation))
        interfaces_.back().operations.push_back(
            {static_cast<DISPID>(std::stol(part[1])), part[2], part[3], ArgumentsOf(part[4])});
    else if (std::regex_match(line, part, coclass))
        classes_.push_back({part[1], GuidOf(part[2]), part[3], part[4]});
}

const PageInterface& Page::Interface(const std::string& name) const
{
    return Named(interfaces_, name);
}

const PageClass& Page::Class(const std::string& name) const
{
    return Named(classes_, name);
}

DISPID Page::Id(const std::string& interfaceName, const std::string& operation) const
{
    return Named(Interface(interfaceName).operations, operation).id;
}

}  // namespace quorvane::test
