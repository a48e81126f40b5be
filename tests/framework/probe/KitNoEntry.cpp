// "KitNoEntry.so": a loadable module without a CreateFunction entry point.
extern "C" __attribute__((visibility("default"))) int KitNoEntryMarker() { return 1; }
