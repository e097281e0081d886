// A plug-in with the two entry points and nothing behind them.
#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

PLUGIN_EXPORT int CreatePlugin() {
    return 1;
}

PLUGIN_EXPORT int DestroyPlugin() {
    return 1;
}
