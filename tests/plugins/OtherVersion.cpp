// A plug-in of another interface version, for the test of its refusal.

extern "C" unsigned asicFeaturePlugin(void*) { return 99; }
