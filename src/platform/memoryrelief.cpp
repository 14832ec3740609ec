#include "platform/memoryrelief.h"

#include <QByteArrayView>
#include <QFile>

#include <malloc.h>
#include <sys/mman.h>

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

void MemoryRelief::releaseIdlePages()
{
    malloc_trim(0);
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (!maps.open(QIODevice::ReadOnly)) {
        return;
    }
    // A hint, not a release: kernels before 5.4 refuse it, and pages that cannot go (no swap for
    // the heap, the vDSO) stay; nothing here can lose data.
    for (const QByteArray &line : maps.readAll().split('\n')) {
        const qsizetype dash = line.indexOf('-');
        const qsizetype space = line.indexOf(' ');
        if (dash <= 0 || space <= dash) {
            continue;
        }
        bool fromOk = false;
        bool toOk = false;
        const quintptr from = QByteArrayView(line).first(dash).toULongLong(&fromOk, 16);
        const quintptr to = QByteArrayView(line).sliced(dash + 1, space - dash - 1).toULongLong(&toOk, 16);
        if (fromOk && toOk && to > from) {
            madvise(reinterpret_cast<void *>(from), to - from, MADV_PAGEOUT);
        }
    }
}
