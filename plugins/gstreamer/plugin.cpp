#include "element.hpp"

namespace {

/// So that encodebin takes this one where the system has several.
constexpr guint rank = GST_RANK_PRIMARY + 1;

gboolean register_element(GstPlugin *plugin) {
    return gst_element_register(plugin, "velamp2enc", rank, gst_vela_mp2_enc_get_type());
}

} // namespace

#define PACKAGE "vela_enc_mp1a"
// Nobody has granted a licence yet.
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, velamp2, "MPEG-1 Audio Layer I/II encoder",
                  register_element, VELA_VERSION, GST_LICENSE_UNKNOWN, "vela_enc_mp1a", "unknown")
