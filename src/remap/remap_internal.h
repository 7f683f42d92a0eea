// Internals shared by the remap sources (not for other engines).
#pragma once

#include <cstdint>

#include "remap/remap.h"

namespace kvdsr::remap {

// Below this many pixels a row loop runs on the calling thread alone: waking
// the team costs more than the work.
constexpr uint64_t kParallelMinPixels = 1u << 15;

RemapContext& mutableContext();
void storeFillScale(int camera, double scaleX, double scaleY);

// Entries of one table: outHeight * (outWidth + extraColumns).
uint64_t tableEntries(uint32_t outWidth, uint32_t outHeight, uint32_t extraColumns);
// Bytes of one camera block: its coordinate map, then the three tables.
uint64_t cameraBlockBytes(uint32_t srcWidth, uint32_t srcHeight, uint64_t entries);
// Tables laid out after a map region of mapRecords records.
RemapTables tablesAt(uint8_t* block, uint32_t mapRecords, uint64_t entries, uint32_t stride);
// Whether the registered workspace is large enough for the camera's block.
bool workspaceHoldsCamera(int camera);

// Rectangle clipped to the output frame and moved by the column shift of
// modes 1 and 2; false when nothing is left. Columns are table columns.
bool effectiveRect(const uint16_t rect[4], uint32_t outWidth, uint32_t outHeight, int mode, uint32_t extraColumns,
                   uint32_t columnShiftFlag, uint32_t out[4], uint32_t* shift);

// DistortionMap_Build in bands of rows: after each band, rowsDone(context, n)
// with n the count of leading map rows that are final (the last call has
// every row). Lets the table rows that read only those be built while they
// are still in cache.
constexpr int kMapBandRows = 16;
struct MapBands {
    int rows;
    void (*rowsDone)(void* context, int rows);
    void* context;
};
uint32_t DistortionMap_BuildInBands(double* map, const RemapModel& model, const double* radii,
                                    const double* distortions, int n, int inverse, double* outScaleX,
                                    double* outScaleY, int fitToFrame, const MapBands& bands);

// Highest map row that RemapLut_Build may read for table row y over columns
// first..last (conservative; mapHeight - 1 when it cannot tell).
int RemapLut_LastMapRow(const double warpMatrix[9], int y, int first, int last, int mapHeight);

}  // namespace kvdsr::remap
