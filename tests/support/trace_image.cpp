// Trace images laid out in memory by the writer's rules; see trace_image.h.
#include "trace_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kelvotest {

namespace {

constexpr int32_t rcBytes = 4;

bool inArea(const TraceImage& img, int64_t offset, int64_t size)
{
    return offset >= 0 && size >= 0 &&
           offset + size <= static_cast<int64_t>(traceImageAreaSize(img));
}

void putWord(uint8_t* at, uint32_t value)
{
    std::memcpy(at, &value, sizeof value);
}

// Drops from the survivors everything that the bytes [from, to) overwrite.
void forget(TraceImage& img, int32_t from, int32_t to)
{
    auto overlaps = [from, to](const TracePlaced& p) {
        return p.offset < to && from < p.offset + p.aligned;
    };
    img.placed.erase(std::remove_if(img.placed.begin(), img.placed.end(), overlaps),
                     img.placed.end());
}

// Closes the segment from offset up to its end with a filler; its length
// word and trailing word are one word when it is 4 bytes long.
void putFiller(TraceImage& img, int32_t offset, int32_t segmentEnd)
{
    const int32_t length = segmentEnd - offset;
    forget(img, offset, segmentEnd);
    traceImagePoke32(img, offset, length);
    traceImagePoke32(img, segmentEnd - 4, length);
    img.placed.push_back(TracePlaced{offset, length, 0});
}

} // namespace

TraceRecordFields traceRecordText(const std::string& data, uint8_t event)
{
    TraceRecordFields rec;
    rec.event = event;
    rec.data = data;
    return rec;
}

TraceRecordFields traceRecordRc(uint8_t event, int32_t rc)
{
    TraceRecordFields rec;
    rec.event = event;
    rec.rc = rc;
    return rec;
}

int32_t traceRecordLength(const TraceRecordFields& rec)
{
    return TRC_RECORD_MIN + (rec.rc ? rcBytes : 0) + static_cast<int32_t>(rec.data.size());
}

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
    h->tracePid = -1;
    h->traceTid = -1;
    h->traceCpid = -1;
    h->maxSevereErrors = -1;
    h->maxRecordSize = trcSegmentSize(bufferSize);
    h->flags = flags;
    std::memset(h->mask, 0xFF, sizeof h->mask);
    h->bufferSize = bufferSize;
    img.bufferSize = bufferSize;
    if (bufferSize >= TRC_START_MARKER) {
        traceImagePoke32(img, 0, TRC_START_MARKER);
        traceImagePoke32(img, 4, TRC_START_MARKER);
        img.placed.push_back(TracePlaced{0, TRC_START_MARKER, 0});
        img.writeOffset = TRC_START_MARKER;
    }
    return img;
}

trcHeader_t* traceImageHeader(TraceImage& img)
{
    return reinterpret_cast<trcHeader_t*>(img.bytes.data());
}

uint8_t* traceImageArea(TraceImage& img)
{
    return img.bytes.data() + TRC_HEADER_SIZE;
}

size_t traceImageAreaSize(const TraceImage& img)
{
    return img.bytes.size() - TRC_HEADER_SIZE;
}

TraceImageView traceImageView(TraceImage& img)
{
    return TraceImageView{traceImageHeader(img), traceImageArea(img), traceImageAreaSize(img)};
}

int32_t traceImageAdd(TraceImage& img, const TraceRecordFields& rec)
{
    const int32_t bufferSize = img.bufferSize;
    const int32_t segment = trcSegmentSize(bufferSize);
    const int32_t aligned = trcAligned(traceRecordLength(rec));
    if (segment <= 0 || aligned + 4 > segment) {
        ADD_FAILURE() << "a record of " << aligned << " bytes does not fit a segment of "
                      << segment;
        return 0;
    }
    int32_t offset = img.writeOffset;
    const int32_t segmentEnd = (offset / segment + 1) * segment;
    if (offset + aligned + 4 > segmentEnd) {
        if ((traceImageHeader(img)->flags & TRC_KEEP_INITIAL) != 0 && segmentEnd >= bufferSize) {
            traceImageHeader(img)->traceFull = 1;
            return 0;
        }
        putFiller(img, offset, segmentEnd);
        offset = segmentEnd;
        if (offset >= bufferSize) {
            offset = 0;
            img.wrapped = true;
        }
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
    return traceImageAdd(img, traceRecordText(data));
}

std::vector<TracePlaced> traceImageSurvivors(const TraceImage& img)
{
    std::vector<TracePlaced> records;
    for (const TracePlaced& p : img.placed) {
        if (p.number > 0) {
            records.push_back(p);
        }
    }
    return records;
}

int32_t traceImageOffsetOf(const TraceImage& img, int32_t number)
{
    for (const TracePlaced& p : img.placed) {
        if (number > 0 && p.number == number) {
            return p.offset;
        }
    }
    return -1;
}

int32_t traceImagePut(TraceImage& img, int32_t offset, const TraceRecordFields& rec,
                      std::optional<int32_t> length)
{
    const int32_t trueLength = traceRecordLength(rec);
    const int32_t aligned = trcAligned(trueLength);
    if (!inArea(img, offset, aligned)) {
        ADD_FAILURE() << "record of " << aligned << " bytes at " << offset
                      << " does not fit the area";
        return 0;
    }
    const uint32_t word = static_cast<uint32_t>(length.value_or(trueLength));
    uint8_t* at = traceImageArea(img) + offset;
    std::memset(at, 0, static_cast<size_t>(aligned));
    const uint32_t fixed[10] = {
        word,
        static_cast<uint32_t>(rec.product) << 24 | static_cast<uint32_t>(rec.event) << 16,
        static_cast<uint32_t>(rec.component) << 24 | static_cast<uint32_t>(rec.klass) << 16 |
            static_cast<uint32_t>(rec.function) << 8 | rec.tracePoint,
        rec.thisPointer,
        rec.pid,
        rec.tid,
        static_cast<uint32_t>(rec.node),
        rec.cpid,
        static_cast<uint32_t>(rec.sec),
        static_cast<uint32_t>(rec.nsec),
    };
    std::memcpy(at, fixed, sizeof fixed);
    uint8_t* data = at + TRC_RECORD_FIXED;
    if (rec.rc) {
        putWord(data, static_cast<uint32_t>(*rec.rc));
        data += rcBytes;
    }
    if (!rec.data.empty()) {
        std::memcpy(data, rec.data.data(), rec.data.size());
    }
    putWord(at + aligned - 4, word);
    return aligned;
}

void traceImagePoke32(TraceImage& img, int32_t offset, int32_t value)
{
    if (!inArea(img, offset, 4)) {
        ADD_FAILURE() << "poke at " << offset << " outside the area";
        return;
    }
    std::memcpy(traceImageArea(img) + offset, &value, sizeof value);
}

int32_t traceImagePeek32(const TraceImage& img, int32_t offset)
{
    int32_t value = 0;
    if (!inArea(img, offset, 4)) {
        ADD_FAILURE() << "peek at " << offset << " outside the area";
        return 0;
    }
    std::memcpy(&value, img.bytes.data() + TRC_HEADER_SIZE + offset, sizeof value);
    return value;
}

void traceImageResize(TraceImage& img, size_t areaSize)
{
    img.bytes.resize(TRC_HEADER_SIZE + areaSize, 0);
}

const trcRecord_t* traceImageRecordAt(TraceImage& img, int32_t offset)
{
    return reinterpret_cast<const trcRecord_t*>(traceImageArea(img) + offset);
}

std::string traceImageBytes(const TraceImage& img)
{
    return std::string(img.bytes.begin(), img.bytes.end());
}

void traceImageSave(const TraceImage& img, const std::string& path)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        ADD_FAILURE() << "cannot create " << path;
        return;
    }
    const size_t written = std::fwrite(img.bytes.data(), 1, img.bytes.size(), file);
    if (std::fclose(file) != 0 || written != img.bytes.size()) {
        ADD_FAILURE() << "cannot write " << path;
    }
}

}  // namespace kelvotest
