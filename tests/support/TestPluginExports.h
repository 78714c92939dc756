#pragma once

#include "Lib/PluginAutoRegistrationGuard.h"
#include "Lib/PluginInterface.h"

#include <memory>

/// What a library exports to be a plugin: one object of `Plugin`, under the id and version.
#define KELVARIS_TEST_PLUGIN(Plugin, id, version)                                                                      \
  extern "C" {                                                                                                         \
  extern const char* const kelvarisPluginDescriptor;                                                                   \
  const char* const kelvarisPluginDescriptor = KELVARIS_PLUGIN_DESCRIPTOR(version);                                    \
  const char* kelvarisPluginId();                                                                                      \
  const char* kelvarisPluginId() {                                                                                     \
    return id;                                                                                                         \
  }                                                                                                                    \
  Kelvaris::PluginBase* kelvarisCreatePlugin();                                                                        \
  Kelvaris::PluginBase* kelvarisCreatePlugin() {                                                                       \
    return std::make_unique<Plugin>().release();                                                                       \
  }                                                                                                                    \
  }                                                                                                                    \
  static const Kelvaris::PluginAutoRegistrationGuard g_guard(&kelvarisPluginId)
