#pragma once

// glibc keeps freed memory for reuse, and after the first large free it keeps even buffers the
// size of a screenshot. A tick allocates tens of megabytes once every 30 seconds and then
// nothing, so Tamlo hands them back rather than carrying them all day.
namespace MemoryRelief {
// Call once at start, before anything large is allocated.
void limitRetainedBuffers();
// Returns freed heap pages to the system; cheap enough to run after every tick.
void releaseFreedMemory();
} // namespace MemoryRelief
