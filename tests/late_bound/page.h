// tests/late_bound/page.h: the page that describes the object model, docs/object-model.txt, read for tests.
#ifndef QUORVANE_TESTS_LATE_BOUND_PAGE_H_
#define QUORVANE_TESTS_LATE_BOUND_PAGE_H_

#include <ostream>
#include <string>
#include <vector>

#include "quorvane3/com.h"

namespace quorvane::test {

struct PageArgument {
    std::string mark;  // "", "optional", "optional, default -1", "in,out", "out,retval"
    std::string type;
    std::string name;

    bool IsResult() const { return mark == "out,retval"; }
    bool IsOptional() const { return mark.starts_with("optional"); }
};

struct PageOperation {
    DISPID id = 0;
    std::string kind;  // "method", "get", "put"
    std::string name;
    std::vector<PageArgument> arguments;

    // What a late-bound caller gives: all but the result.
    size_t ArgumentCount() const;
    size_t RequiredCount() const;
};

struct PageInterface {
    std::string kind;  // "dual", "callback", "source"
    std::string name;
    IID id{};
    std::vector<PageOperation> operations;
};

struct PageClass {
    std::string name;
    CLSID id{};
    std::string defaultInterface;
    std::string sourceInterface;  // empty: none
};
inline void PrintTo(const PageClass& each, std::ostream* out)
{
    *out << each.name;
}

// Throws std::runtime_error: the page can't be read, or has no such entry.
class Page {
public:
    static const Page& Instance();

    const std::vector<PageInterface>& Interfaces() const noexcept { return interfaces_; }
    const std::vector<PageClass>& Classes() const noexcept { return classes_; }

    const PageInterface& Interface(const std::string& name) const;
    const PageClass& Class(const std::string& name) const;
    DISPID Id(const std::string& interfaceName, const std::string& operation) const;

private:
    Page();
    void ReadLine(const std::string& line);

    std::vector<PageInterface> interfaces_;
    std::vector<PageClass> classes_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_LATE_BOUND_PAGE_H_
