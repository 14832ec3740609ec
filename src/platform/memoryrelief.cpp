#include "platform/memoryrelief.h"

#include <malloc.h>

namespace {
// Image, PNG, Base64 and request buffers are all larger than this, so each gets its own mapping
// that goes back to the system when freed; fixing the value also stops glibc from raising it.
constexpr int mmapThreshold = 256 * 1024;
} // namespace

void MemoryRelief::limitRetainedBuffers()
{
    mallopt(M_MMAP_THRESHOLD, mmapThreshold);
}

void MemoryRelief::releaseFreedMemory()
{
    malloc_trim(0);
}
