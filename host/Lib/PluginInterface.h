#pragma once

/// What a plugin library exports and how it says what it was built against. Free of code, so that a library can include
/// it without depending on anything.
///
/// A plugin exports three C symbols:
///     const char* kelvarisPluginDescriptor;   // the descriptor text; read without running code of the library
///     const char* kelvarisPluginId();         // the plugin's id, for example "Kelvaris.USImgFormation"
///     PluginBase* kelvarisCreatePlugin();     // a new plugin object, owned by the caller

#define KELVARIS_HOST_VERSION "4.5.0"

#define KELVARIS_TEXT_OF(x) #x
#define KELVARIS_TEXT_OF_VALUE(x) KELVARIS_TEXT_OF(x)
/// Settings that change the layout of standard types: each a name, a colon, and what the macro of that setting expands
/// to (its own name where it is not defined).
#define KELVARIS_BUILD_FLAGS "GLIBCXX_DEBUG:" KELVARIS_TEXT_OF_VALUE(_GLIBCXX_DEBUG)

#define KELVARIS_PLUGIN_MAGIC "__KELVARIS_PLUGIN_V2_MAGIC_STRING__"

/// The descriptor text; `version` is the plugin's own, and may be empty.
#define KELVARIS_PLUGIN_DESCRIPTOR(version)                                                                            \
  KELVARIS_PLUGIN_MAGIC "|hostversion=" KELVARIS_HOST_VERSION "|buildflags=" KELVARIS_BUILD_FLAGS                      \
                        "|pluginversion=" version
