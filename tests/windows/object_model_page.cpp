#include "tests/windows/object_model_page.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace quorvane::test {

namespace {

std::vector<std::string> WordsOf(const std::string& line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

}  // namespace

Blocks ReadObjectModelPage()
{
    std::ifstream page(QUORVANE_OBJECT_MODEL_PAGE);
    if (!page)
        throw std::runtime_error("can't read " QUORVANE_OBJECT_MODEL_PAGE);
    Blocks blocks;
    std::string header;
    for (std::string line; std::getline(page, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        if (line[0] == ' ') {
            blocks[header].push_back(line.substr(line.find_first_not_of(' ')));
        } else {
            header = line;
            blocks[header];
        }
    }
    return blocks;
}

GUID PageType::Guid() const
{
    GUID result{};
    if (FAILED(IIDFromString(FromUtf8(id).c_str(), &result)))
        throw std::runtime_error("no identifier: " + id);
    return result;
}

std::vector<PageType> TypesOf(const Blocks& page)
{
    std::vector<PageType> types;
    for (const auto& [header, lines] : page) {
        const std::vector<std::string> words = WordsOf(header);
        if (words.size() < 3 || words[2][0] != '{' || words[0] == "library")
            continue;
        PageType type{words[0], words[1], words[2], {}, words.back() == "creatable"};
        for (size_t i = 3; i + 1 < words.size(); ++i)
            if (words[i] == "threading")
                type.threading = words[i + 1];
        types.push_back(type);
    }
    return types;
}

std::vector<PageType> TypesOf(const Blocks& page, const std::string& kind)
{
    std::vector<PageType> types = TypesOf(page);
    std::erase_if(types, [&](const PageType& type) { return type.kind != kind; });
    return types;
}

std::string LibraryIdOf(const Blocks& page)
{
    for (const auto& [header, lines] : page) {
        const std::vector<std::string> words = WordsOf(header);
        if (words.size() > 2 && words[0] == "library")
            return words[2];
    }
    throw std::runtime_error("the page names no library");
}

std::string WithoutThreading(const std::string& line)
{
    const size_t begin = line.find(" threading ");
    if (!line.starts_with("class ") || begin == std::string::npos)
        return line;
    const size_t end = line.find(' ', begin + sizeof(" threading ") - 1);
    return line.substr(0, begin) + (end == std::string::npos ? "" : line.substr(end));
}

}  // namespace quorvane::test
