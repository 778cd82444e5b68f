#pragma once

#include "settings/record.hpp"

#include <glib-object.h>

namespace velamp2 {

/// What the properties ask for.
struct wishes : tools::wishes {
    wish align;      ///< 0 or 1: the decoder's delay is taken out of the stream
    wish flush_tail; ///< 0 or 1: silence behind the sound, so that decoders give all of it
};

/// Adds the element's properties to its class.
void install_properties(GObjectClass *object_class);

/// @param id  as install_properties() gave it; GObject knows no other
void set_property(wishes &wished, guint id, const GValue *value);
void get_property(const wishes &wished, guint id, GValue *value);

} // namespace velamp2
