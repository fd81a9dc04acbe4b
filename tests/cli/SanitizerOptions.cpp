// What the sanitizers are told when they watch the tests of the program.

extern "C" {

// A PNG that ends too early makes libpng jump out of OpenImageIO's reader past the message that it holds: a
// few bytes are lost there, and nothing on this side can free them.
__attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:PngReadCallback";
}

// Suppressions go by the functions of the whole stack, which the quick way of walking it can't tell for
// libraries built without frame pointers.
__attribute__((visibility("default"))) const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}
}
