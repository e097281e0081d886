// A library without the plug-in entry points.
extern "C" __attribute__((visibility("default"))) int Unrelated() {
    return 7;
}
