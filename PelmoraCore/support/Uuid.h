#pragma once

#include <string>

namespace pelmora {

// A random (version 4) UUID in canonical upper-case form,
// "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
std::string randomUUID();

} // namespace pelmora
