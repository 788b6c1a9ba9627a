/// An executor's half of the contract: what a call of the service must carry.
#pragma once

#include <string>

namespace gateway {

/// What is wrong with a call of `method` whose arguments have the wire types `signature` and whose
/// text argument is `payload`; "" when nothing is.
std::string callFault(const std::string& method, const std::string& signature,
                      const std::string& payload);

}  // namespace gateway
