#pragma once

#include <gst/gst.h>

/// The type of the element velamp2enc.
GType gst_vela_mp2_enc_get_type();
