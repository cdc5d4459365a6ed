/** What a user sets on the element: the properties, with the library's own ranges and defaults. */
#ifndef KORVANE_GSTREAMER_SETTINGS_H
#define KORVANE_GSTREAMER_SETTINGS_H

#include <glib-object.h>
#include <korvane_stream.h>

namespace korvane {

/** What goes on where nobody speaks. */
enum Silence {
    kPass,  ///< the sound, as everywhere
    kMute,  ///< zeros, in buffers flagged GAP
    kGap    ///< gap events instead of buffers
};

struct Settings {
    KorvaneStreamConfig config;  ///< of 16 kHz mono until the caps are known
    bool clean = true;           ///< the sound that goes on is the cleaned one
    Silence silence = kPass;
};

Settings default_settings();

/** Installs the properties that can be set, numbered from 1. Returns the first number that is free. */
guint install_settings(GObjectClass* object);

/** Sets or reads a property of install_settings; false where the number is of none. */
bool set_setting(Settings& settings, guint id, const GValue* value);
bool get_setting(const Settings& settings, guint id, GValue* value);

}  // namespace korvane

#endif
