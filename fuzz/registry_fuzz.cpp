// The text that keeps settings: what is understood of it is written, and read again, as the same.
#include "fuzz/target.h"
#include "platform/registry/registry_text.h"

namespace quorvane::fuzz {
namespace {

void RunRegistry(const BYTE* data, std::size_t size)
{
    RegistryText keys;
    if (!keys.Parse({reinterpret_cast<const char*>(data), size}))
        return;
    const std::string text = keys.Format();
    RegistryText again;
    Require(again.Parse(text), "what was written isn't read");
    Require(again.Format() == text, "what was written is read as something else");
}

std::vector<Bytes> MakeRegistrySeeds()
{
    RegistryText keys;
    RegistryText::Values& values = keys.MakeKey("HKEY_CURRENT_USER\\Software\\Example");
    values[""] = {"", RegistryValue::OfText("the default value")};
    values["text"] = {"Text", RegistryValue::OfText("with \"quotes\" and back\\slashes, \xC3\xA4")};
    values["number"] = {"Number", RegistryValue::OfNumber(31)};
    keys.MakeKey("HKEY_CURRENT_USER\\Software\\Example\\Below");
    const std::string header = "Windows Registry Editor Version 5.00\n\n";
    const std::string key = "[HKEY_LOCAL_MACHINE\\Software]\n";
    std::string wide = "\xFF\xFE";
    for (const char c : header + key + "@=\"x\"\n")
        wide += {c, '\0'};
    std::vector<Bytes> seeds;
    for (const std::string& text :
         {keys.Format(),
          header + key + "; a comment\n\"Bytes\"=hex:01,02,\\\n  03\n\"b\"=hex(2):41,00,00,00\n",
          header + key +
              "\"m\"=hex(7):41,00,00,00,42,00,00,00,00,00\n\"m\"=-\n[-HKEY_LOCAL_MACHINE\\Software]\n",
          wide})
        seeds.emplace_back(text.begin(), text.end());
    return seeds;
}

}  // namespace

const Target kRegistry{"registry", RunRegistry, MakeRegistrySeeds};

}  // namespace quorvane::fuzz
