#pragma once

#include "settings/record.hpp"

#include <glib-object.h>

namespace velamp2 {

using tools::wishes;

/// Adds the element's properties to its class.
void install_properties(GObjectClass *object_class);

/// @param id  as install_properties() gave it; for another one nothing happens and the answer is false
bool set_property(wishes &wished, guint id, const GValue *value);
bool get_property(const wishes &wished, guint id, GValue *value);

} // namespace velamp2
