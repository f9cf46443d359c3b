// Trace images laid out in memory by the writer's rules; see trace_image.h.
#include "trace_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace kelvotest {

namespace {

// Whether the size bytes at offset lie inside the area; a failure if not.
bool inArea(const TraceImage& img, int64_t offset, int64_t size)
{
    const bool inside =
        offset >= 0 && size >= 0 && TRC_HEADER_SIZE + offset + size <= static_cast<int64_t>(img.bytes.size());
    EXPECT_TRUE(inside) << size << " bytes at " << offset << " lie outside the area";
    return inside;
}

int32_t lengthOf(const TraceRecordFields& rec)
{
    return TRC_RECORD_MIN + (rec.rc ? 4 : 0) + static_cast<int32_t>(rec.data.size());
}

// Drops from the survivors everything that the bytes [from, to) overwrite.
void forget(TraceImage& img, int32_t from, int32_t to)
{
    std::erase_if(img.placed,
                  [from, to](const TracePlaced& p) { return p.offset < to && from < p.offset + p.aligned; });
}

}  // namespace

TraceImage traceImageNew(int32_t bufferSize, uint32_t flags)
{
    TraceImage img;
    if (bufferSize <= 0) {
        ADD_FAILURE() << "trace image with bufferSize " << bufferSize;
        bufferSize = 0;
    }
    img.bytes.assign(TRC_HEADER_SIZE + static_cast<size_t>(bufferSize), 0);
    trcHeader_t* h = traceImageHeader(img);
    std::memcpy(h->magic, TRC_MAGIC, sizeof h->magic);
    h->layoutId = TRC_LAYOUT_ID;
    for (auto& version : h->prodVersion) {
        std::memcpy(version, TRC_NO_VERSION, sizeof version);
    }
    h->tracePid = h->traceTid = h->traceCpid = h->maxSevereErrors = -1;
    h->maxRecordSize = trcSegmentSize(bufferSize);
    h->flags = flags;
    std::memset(h->mask, 0xFF, sizeof h->mask);
    h->bufferSize = img.bufferSize = bufferSize;
    if (bufferSize >= TRC_START_MARKER) {
        traceImagePoke32(img, 0, TRC_START_MARKER);
        traceImagePoke32(img, 4, TRC_START_MARKER);
        img.placed.push_back(TracePlaced{0, TRC_START_MARKER, 0});
        img.writeOffset = TRC_START_MARKER;
    }
    return img;
}

trcHeader_t* traceImageHeader(TraceImage& img) { return reinterpret_cast<trcHeader_t*>(img.bytes.data()); }

uint8_t* traceImageArea(TraceImage& img) { return img.bytes.data() + TRC_HEADER_SIZE; }

int32_t traceImageAdd(TraceImage& img, const TraceRecordFields& rec)
{
    const int32_t segment = trcSegmentSize(img.bufferSize);
    const int32_t aligned = trcAligned(lengthOf(rec));
    if (segment <= 0 || aligned + 4 > segment) {
        ADD_FAILURE() << "a record of " << aligned << " bytes does not fit a segment of " << segment;
        return 0;
    }
    int32_t offset = img.writeOffset;
    const int32_t segmentEnd = (offset / segment + 1) * segment;
    const bool last = segmentEnd >= img.bufferSize;
    if (offset + aligned + 4 > segmentEnd) {
        if ((traceImageHeader(img)->flags & TRC_KEEP_INITIAL) != 0 && last) {
            traceImageHeader(img)->traceFull = 1;
            return 0;
        }
        // A filler closes the segment; a 4-byte one is a single word.
        forget(img, offset, segmentEnd);
        traceImagePoke32(img, offset, segmentEnd - offset);
        traceImagePoke32(img, segmentEnd - 4, segmentEnd - offset);
        img.placed.push_back(TracePlaced{offset, segmentEnd - offset, 0});
        img.wrapped = img.wrapped || last;
        offset = last ? 0 : segmentEnd;
    }
    forget(img, offset, offset + aligned + 4);
    traceImagePut(img, offset, rec);
    traceImagePoke32(img, offset + aligned, 0);
    img.writeOffset = offset + aligned;
    img.placed.push_back(TracePlaced{offset, aligned, ++img.recordsAdded});
    return img.recordsAdded;
}

int32_t traceImageAddText(TraceImage& img, const std::string& data)
{
    TraceRecordFields rec;
    rec.data = data;
    return traceImageAdd(img, rec);
}

std::vector<TracePlaced> traceImageSurvivors(const TraceImage& img)
{
    std::vector<TracePlaced> records;
    std::copy_if(img.placed.begin(), img.placed.end(), std::back_inserter(records),
                 [](const TracePlaced& p) { return p.number > 0; });
    return records;
}

int32_t traceImageOffsetOf(const TraceImage& img, int32_t number)
{
    auto it = std::find_if(img.placed.begin(), img.placed.end(),
                           [number](const TracePlaced& p) { return number > 0 && p.number == number; });
    return it == img.placed.end() ? -1 : it->offset;
}

int32_t traceImagePut(TraceImage& img, int32_t offset, const TraceRecordFields& rec, std::optional<int32_t> length)
{
    const int32_t aligned = trcAligned(lengthOf(rec));
    if (!inArea(img, offset, aligned)) {
        return 0;
    }
    // Laid out word by word, independently of trcRecord_t.
    uint8_t* at = traceImageArea(img) + offset;
    const auto word = static_cast<uint32_t>(length.value_or(lengthOf(rec)));
    const uint32_t rcWord = static_cast<uint32_t>(rec.rc.value_or(0));
    const uint32_t fixed[10] = {
        word,
        uint32_t{rec.product} << 24 | uint32_t{rec.event} << 16,
        uint32_t{rec.component} << 24 | uint32_t{rec.klass} << 16 | uint32_t{rec.function} << 8 | rec.tracePoint,
        rec.thisPointer,
        rec.pid,
        rec.tid,
        static_cast<uint32_t>(rec.node),
        rec.cpid,
        static_cast<uint32_t>(rec.sec),
        static_cast<uint32_t>(rec.nsec),
    };
    std::memset(at, 0, static_cast<size_t>(aligned));
    std::memcpy(at, fixed, sizeof fixed);
    const size_t rcBytes = rec.rc ? 4 : 0;
    std::memcpy(at + TRC_RECORD_FIXED, &rcWord, rcBytes);
    std::memcpy(at + TRC_RECORD_FIXED + rcBytes, rec.data.data(), rec.data.size());
    std::memcpy(at + aligned - 4, &word, 4);
    return aligned;
}

void traceImagePoke32(TraceImage& img, int32_t offset, int32_t value)
{
    if (inArea(img, offset, 4)) {
        std::memcpy(traceImageArea(img) + offset, &value, sizeof value);
    }
}

int32_t traceImagePeek32(const TraceImage& img, int32_t offset)
{
    int32_t value = 0;
    if (inArea(img, offset, 4)) {
        std::memcpy(&value, img.bytes.data() + TRC_HEADER_SIZE + offset, sizeof value);
    }
    return value;
}

void traceImageResize(TraceImage& img, size_t areaSize) { img.bytes.resize(TRC_HEADER_SIZE + areaSize, 0); }

std::string traceImageBytes(const TraceImage& img) { return std::string(img.bytes.begin(), img.bytes.end()); }

void traceImageSave(const TraceImage& img, const std::string& path)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    const size_t written = file ? std::fwrite(img.bytes.data(), 1, img.bytes.size(), file) : 0;
    if (file == nullptr || std::fclose(file) != 0 || written != img.bytes.size()) {
        ADD_FAILURE() << "cannot write " << path;
    }
}

}  // namespace kelvotest
