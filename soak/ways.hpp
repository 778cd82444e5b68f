// The ways into the encoder, each with streams of its own.
#pragma once

#include "voices.hpp"

#include <memory>

namespace soak {

std::unique_ptr<voice> by_functions(const settings &how);
std::unique_ptr<voice> by_engine(const settings &how);
#if defined(SOAK_ELEMENT)
std::unique_ptr<voice> by_element(const settings &how);
#endif

} // namespace soak
