#include "tests/support/PaintedStack.h"

#include <pthread.h>

namespace testsupport {

namespace {

constexpr unsigned char kPaint = 0xA7;
constexpr std::size_t kFramesInUse = 512;  // the frames of the painter and what the processor keeps below them

}  // namespace

PaintedStack::PaintedStack() {
    pthread_attr_t attributes;
    void* lowest = nullptr;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
    pthread_attr_getstack(&attributes, &lowest, &bytes);
    pthread_attr_destroy(&attributes);
    farEnd = static_cast<volatile unsigned char*>(lowest);
    const auto* const here = static_cast<volatile unsigned char*>(__builtin_frame_address(0));
    for (volatile unsigned char* byte = farEnd; byte < here - kFramesInUse; ++byte) *byte = kPaint;
}

std::size_t PaintedStack::untouched() const {
    std::size_t count = 0;
    while (count < bytes && farEnd[count] == kPaint) ++count;
    return count;
}

}  // namespace testsupport
