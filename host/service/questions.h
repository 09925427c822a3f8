// host/service/questions.h: what a person is asked, one line each.
#ifndef QUORVANE_HOST_SERVICE_QUESTIONS_H_
#define QUORVANE_HOST_SERVICE_QUESTIONS_H_

#include <functional>
#include <istream>
#include <ostream>
#include <string>

namespace quorvane::host {

// For one thread.
class Questions {
public:
    // in, out: outlive this.
    // width: columns of the terminal that `out` is; 0 of none.
    Questions(std::istream& in, std::ostream& out, std::size_t width = 0) : in_(in), out_(out), width_(width)
    {}

    // Asks until an answer will do.
    //
    // proposed  what an empty line stands for; not empty.
    // judge     what is wrong with an answer, in one line; empty of one that will do.
    //
    // Throws a HostError where the answers end.
    std::string Ask(const std::string& question, const std::string& proposed,
                    const std::function<std::string(const std::string&)>& judge);
    // A yes or a no; an empty line is a yes.
    bool Confirm(const std::string& question);

private:
    std::istream& in_;
    std::ostream& out_;
    const std::size_t width_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SERVICE_QUESTIONS_H_
