// What GStreamer looks for in the file.
#include <gst/gst.h>

#include "element.h"

#define PACKAGE "korvane-vad"

static gboolean plugin_init(GstPlugin* plugin) {
    return gst_element_register(plugin, "korvanevad", GST_RANK_NONE, korvane_vad_get_type());
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, korvane,
                  "Noise suppressor and voice-activity detector", plugin_init, KORVANE_VERSION,
                  GST_LICENSE_UNKNOWN, "Korvane VAD", "https://korvane-vad.invalid/")
