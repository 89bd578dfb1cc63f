// What the sanitizer builds of cmhost must let be in FFmpeg's libraries, which the FFmpeg
// components load and which are not instrumented (the tests' support carries the same
// list: each program names its own). libx265 3.5 leaks a few allocations of every encoder
// it opens; the frame threads of FFmpeg's decoders hand pictures over through atomics the
// thread checker cannot see. The checkers ask for these lists; the other builds never
// call them.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265.so\n";
}

// A leak that was let be is no news: without this the leak checker would append its table
// of used suppressions to the standard error of every run that opened libx265.
extern "C" const char* __lsan_default_options() {
    return "print_suppressions=0";
}

extern "C" const char* __tsan_default_suppressions() {
    return "race:libavutil.so\nrace:libavcodec.so\n";
}
