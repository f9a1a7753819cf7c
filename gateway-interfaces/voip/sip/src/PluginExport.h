#pragma once

/// Marks what the plug-in exports; everything else in it is hidden.
#if defined(_WIN32)
#define QUORVEX_PLUGIN_EXPORT __declspec(dllexport)
#else
#define QUORVEX_PLUGIN_EXPORT __attribute__((visibility("default")))
#endif
