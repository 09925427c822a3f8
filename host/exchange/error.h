// host/exchange/error.h: how work with the exchange fails.
#ifndef QUORVANE_HOST_EXCHANGE_ERROR_H_
#define QUORVANE_HOST_EXCHANGE_ERROR_H_

#include <stdexcept>
#include <string>

namespace quorvane::host::exchange {

// Its text says what was wrong with what, in one line.
class Error : public std::runtime_error {
public:
    enum class Kind {
        kRefused,  // what another member laid there isn't what it ought to be: it stays refused
        kPassing,  // the place or the disk can't be used just now: the same may succeed later
    };

    Error(Kind kind, const std::string& line) : std::runtime_error(line), kind_(kind) {}
    Kind What() const noexcept { return kind_; }

private:
    Kind kind_;
};

[[noreturn]] inline void Refuse(const std::string& line)
{
    throw Error(Error::Kind::kRefused, line);
}

[[noreturn]] inline void FailForNow(const std::string& line)
{
    throw Error(Error::Kind::kPassing, line);
}

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_ERROR_H_
