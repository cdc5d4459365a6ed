/** The element korvanevad: a GObject around a session. */
#ifndef KORVANE_GSTREAMER_ELEMENT_H
#define KORVANE_GSTREAMER_ELEMENT_H

#include <gst/gst.h>

extern "C" {
/** The element's type, for gst_element_register. */
GType korvane_vad_get_type(void);
}

#endif
