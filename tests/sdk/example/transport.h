// transport.h: packages between two members, through a directory for each direction.
#ifndef SHARING_HOST_TRANSPORT_H_
#define SHARING_HOST_TRANSPORT_H_

#include <filesystem>
#include <string>

#include "quorvane3/quorvane3.h"

// A host's record of what it has taken and not delivered yet would belong here; this one may lose a package
// if it is killed between the two.
class Transport {
public:
    // member  goes before the names of the files that are delivered, and tells the receiver who sent them.
    // inbox   where received files lie while the engine works on them.
    Transport(std::string member, std::filesystem::path out, std::filesystem::path in,
              std::filesystem::path inbox);

    // Takes the engine's packages that nobody is writing to, and delivers them; gives their number.
    int Deliver(ISession2& session) const;
    // Hands the files that have arrived to the engine; gives their number.
    int Receive(ISession2& session) const;

private:
    std::string member_;
    std::filesystem::path out_;
    std::filesystem::path in_;
    std::filesystem::path inbox_;
};

#endif  // SHARING_HOST_TRANSPORT_H_
