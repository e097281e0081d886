// A library with CreatePlugin but without DestroyPlugin.
extern "C" __attribute__((visibility("default"))) int CreatePlugin() {
    return 1;
}
