// The remap context: sizes from the last size query and the caller's buffers.
#include <algorithm>

#include "remap/remap.h"
#include "remap/remap_internal.h"

namespace kvdsr::remap {

namespace {
RemapContext g_context;  // constant-initialised
}  // namespace

RemapContext& mutableContext() { return g_context; }
const RemapContext& Remap_Context() { return g_context; }

uint32_t Remap_Reset() {
    g_context = RemapContext{};
    return 0;
}

uint64_t tableEntries(uint32_t outWidth, uint32_t outHeight, uint32_t extraColumns) {
    return uint64_t(outHeight) * (uint64_t(outWidth) + extraColumns);
}

uint64_t cameraBlockBytes(uint32_t srcWidth, uint32_t srcHeight, uint64_t entries) {
    return 16 * uint64_t(srcWidth) * srcHeight + 8 * entries;
}

uint32_t Remap_QuerySize(uint32_t* outWorkspaceBytes, uint32_t* outMapBytes, uint16_t srcWidth1,
                         uint16_t srcHeight1, uint16_t srcWidth2, uint16_t srcHeight2, uint16_t outWidth,
                         uint16_t outHeight, uint32_t extraColumns, uint32_t mapCount, uint32_t withMapStore) {
    const uint64_t area = uint64_t(srcWidth1) * srcHeight1 + uint64_t(srcWidth2) * srcHeight2;
    const uint64_t out = uint64_t(outWidth) * outHeight;
    const uint64_t entries = tableEntries(outWidth, outHeight, extraColumns);
    uint64_t workspace = withMapStore == 1 ? 16 * area + 33 * out + 8 * entries
                                           : 16 * area + 8 * uint64_t(outHeight) * (2 * uint64_t(outWidth) + extraColumns);
    // Both camera blocks must fit even with extra columns, which the plain
    // formula under-counts.
    const uint64_t layout = cameraBlockBytes(srcWidth1, srcHeight1, entries) +
                            cameraBlockBytes(srcWidth2, srcHeight2, entries);
    if (out != 0) workspace = std::max(workspace, layout);
    const uint64_t mapBytes = 16 * uint64_t(mapCount) * area;
    // Sizes past 32 bits become a request the allocator refuses.
    const uint32_t ws = uint32_t(std::min<uint64_t>(workspace, 0xFFFFFFFFu));
    const uint32_t mb = uint32_t(std::min<uint64_t>(mapBytes, 0xFFFFFFFFu));
    if (outWorkspaceBytes) *outWorkspaceBytes = ws;
    if (outMapBytes) *outMapBytes = mb;

    RemapContext& c = g_context;
    c.srcWidth1 = srcWidth1;
    c.srcHeight1 = srcHeight1;
    c.srcWidth2 = srcWidth2;
    c.srcHeight2 = srcHeight2;
    c.outWidth = outWidth;
    c.outHeight = outHeight;
    c.extraColumns = extraColumns;
    c.mapCount = mapCount;
    c.workspaceSize = ws;
    return ws != 0 && mb != 0 ? 0 : kZeroSize;
}

uint32_t Remap_SetWorkspace(void* buffer) {
    if (!buffer) return kNullBuffer;
    g_context.workspace = static_cast<uint8_t*>(buffer);
    return 0;
}

uint32_t Remap_SetBuffers(void* mapStore, void* lutStore) {
    if (!mapStore || !lutStore) return kNullBuffer;
    g_context.mapStore = static_cast<uint8_t*>(mapStore);
    g_context.lutStore = static_cast<uint8_t*>(lutStore);
    return 0;
}

void Remap_SetColumnShiftFlag(uint32_t flag) { g_context.columnShiftFlag = flag; }

void storeFillScale(int camera, double scaleX, double scaleY) {
    if (camera == 1 || camera == 2) {
        g_context.fillScaleX = scaleX;
        g_context.fillScaleY = scaleY;
    } else if (camera == 0) {
        g_context.fillScaleCamera0X = scaleX;
        g_context.fillScaleCamera0Y = scaleY;
    }
}

RemapTables tablesAt(uint8_t* block, uint32_t mapRecords, uint64_t entries, uint32_t stride) {
    RemapTables t;
    t.map = reinterpret_cast<double*>(block);
    t.mapRecords = mapRecords;
    uint8_t* tables = block + 16 * uint64_t(mapRecords);
    t.offset = reinterpret_cast<uint32_t*>(tables);
    t.columnWeight = reinterpret_cast<uint16_t*>(tables + 4 * entries);
    t.rowWeight = reinterpret_cast<uint16_t*>(tables + 6 * entries);
    t.stride = stride;
    return t;
}

RemapTables Remap_WorkspaceTables(uint8_t* workspace, int camera) {
    const RemapContext& c = g_context;
    if (!workspace || (camera != 1 && camera != 2)) return {};
    const uint64_t entries = tableEntries(c.outWidth, c.outHeight, c.extraColumns);
    const uint32_t stride = c.outWidth + c.extraColumns;
    const uint32_t records1 = uint32_t(c.srcWidth1) * c.srcHeight1;
    if (camera == 1) return tablesAt(workspace, records1, entries, stride);
    const uint64_t start = cameraBlockBytes(c.srcWidth1, c.srcHeight1, entries);
    return tablesAt(workspace + start, uint32_t(c.srcWidth2) * c.srcHeight2, entries, stride);
}

bool workspaceHoldsCamera(int camera) {
    const RemapContext& c = g_context;
    if (!c.workspace || (camera != 1 && camera != 2)) return false;
    const uint64_t entries = tableEntries(c.outWidth, c.outHeight, c.extraColumns);
    uint64_t end = cameraBlockBytes(c.srcWidth1, c.srcHeight1, entries);
    if (camera == 2) end += cameraBlockBytes(c.srcWidth2, c.srcHeight2, entries);
    return entries != 0 && end <= c.workspaceSize;
}

}  // namespace kvdsr::remap
