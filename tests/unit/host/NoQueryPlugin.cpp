// A shared library that is no plugin: it lacks QueryPlugin.
extern "C" __attribute__((visibility("default"))) int notAPlugin() {
    return 0;
}
