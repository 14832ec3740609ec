#pragma once

// glibc keeps freed memory for reuse, and after the first large free it keeps even buffers the
// size of a screenshot. A tick allocates tens of megabytes once every 30 seconds and then
// nothing, so Tamlo hands them back rather than carrying them all day.
namespace MemoryRelief {
// Call once at start, before anything large is allocated.
void limitRetainedBuffers();
// Returns freed heap pages to the system; cheap enough to run after every tick.
void releaseFreedMemory();
// After the panel goes: also asks the kernel to reclaim the pages only Tamlo maps, mostly the
// code of the graphics and scene libraries. What a tick needs comes back on its first use; pages
// shared with other programs stay where they are.
void releaseIdlePages();
} // namespace MemoryRelief
