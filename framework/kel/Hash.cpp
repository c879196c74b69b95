#include "framework/kel/Hash.h"

#include <random>

namespace Kel {

std::uint32_t const hashSeed = std::random_device{}();

}  // namespace Kel
