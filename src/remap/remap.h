// Rectification maps, fixed-point lookup tables and the bilinear warp: a
// library of plain functions over explicit inputs, with no state of its own.
//
// Result codes: 0xD000 map built, 0xD114 some pixel beyond the distortion
// table (map complete), 0xD115 fill-scale search failed, 0xC115 null buffer,
// 0xC117 zero size.
//
// Typical use by an engine (see docs/remap.md):
//   Init:  RemapLayout layout{srcW, srcH, outW, outH};
//          storage of Remap_TableBytes(layout) bytes per camera;
//          RemapTables t = Remap_TablesIn(storage, layout);
//          Remap_BuildCamera(t, calib::readCamera(block, camera), layout);  // 0 or a map code
//   Run:   Remap_ApplyPlane(dst, src, t.offset, t.columnWeight, t.rowWeight, srcW, t.stride, rect);
#pragma once

#include <cstdint>

#include "calibration/camera_model.h"

namespace kvdsr::remap {

constexpr uint32_t kMapOk = 0xD000;
constexpr uint32_t kMapBeyondTable = 0xD114;
constexpr uint32_t kMapFillScaleFailed = 0xD115;
constexpr uint32_t kFillScaleEdgeBeyondTable = 0xD119;
constexpr uint32_t kNullBuffer = 0xC115;
constexpr uint32_t kZeroSize = 0xC117;

// Sizes and placement of one camera's tables.
struct RemapLayout {
    uint16_t srcWidth = 0, srcHeight = 0;  // source image the tables point into
    uint16_t outWidth = 0, outHeight = 0;  // output frame
    uint32_t extraColumns = 0;             // table (and destination) rows hold outWidth + extraColumns entries
    // Entries each row is written to the right: extraColumns for the shifted
    // modes (1 and 2 with the column-shift flag), otherwise 0.
    uint32_t columnShift = 0;

    uint32_t stride() const { return uint32_t(outWidth) + extraColumns; }
    uint64_t entries() const { return uint64_t(outHeight) * stride(); }
};

// One camera's tables: per output pixel the source index of the top-left
// neighbour and the weights (1/1024) of the left column and the upper row.
// Offset 0 with weights 0 marks an unusable source point. Rows are `stride`
// entries apart, as the destination planes.
struct RemapTables {
    uint32_t* offset = nullptr;
    uint16_t* columnWeight = nullptr;
    uint16_t* rowWeight = nullptr;
    uint32_t stride = 0;
};

// Storage of one camera's tables for a layout: offsets, column weights and
// row weights back to back, 8 bytes per entry.
uint64_t Remap_TableBytes(const RemapLayout& layout);
// The three tables inside storage (4-byte aligned) of Remap_TableBytes bytes.
RemapTables Remap_TablesIn(uint8_t* storage, const RemapLayout& layout);

// The described workspace arithmetic, with A = w1*h1 + w2*h2:
// workspace = 16*A + 33*ow*oh + 8*oh*(ow+extra) (withMapStore 1) or
// 16*A + 8*oh*(2*ow+extra), raised to two camera blocks (16 bytes per source
// pixel for the map, 8 per table entry) when extra columns would not fit, and
// saturated at 0xFFFFFFFF; mapBytes = 16*mapCount*A. 0xC117 when either is 0.
uint32_t Remap_QuerySize(uint32_t* outWorkspaceBytes, uint32_t* outMapBytes, uint16_t srcWidth1,
                         uint16_t srcHeight1, uint16_t srcWidth2, uint16_t srcHeight2, uint16_t outWidth,
                         uint16_t outHeight, uint32_t extraColumns, uint32_t mapCount, uint32_t withMapStore);

// ---- Model and distortion table ---------------------------------------------

// A camera as the map build uses it, for one layout.
struct RemapModel {
    uint16_t mapValues[2] = {};  // copied unchanged from the camera
    uint16_t gridWidth = 0;      // current model width: map grid columns
    uint16_t gridHeight = 0;     // current model height: map grid rows
    uint16_t calibWidth = 0;     // Wc
    uint16_t calibHeight = 0;    // Hc
    uint16_t srcWidth = 0;       // source image the map points into (grid of cx, cy)
    uint16_t srcHeight = 0;
    double pixelPitch = 0;       // p * 1000 (the map build multiplies by 0.001)
    double cx = 0, cy = 0;       // principal point in source pixels
    uint16_t rect[4] = {};       // first col, first row, last col, last row: the whole output frame
    double homography[9] = {};   // rectifying homography, row-major
};

// Working form of a distortion table: the calibration's n entries (at most
// 22) followed by 25 extrapolated ones. Fixed storage, no allocation.
struct DistortionTable {
    static constexpr int kMaxCalibrationEntries = 22;
    static constexpr int kExtension = 25;
    static constexpr int kCapacity = kMaxCalibrationEntries + kExtension;
    double radius[kCapacity] = {};
    double distortion[kCapacity] = {};  // percent
    int count = 0;                      // n + 25
    int calibrationEntries = 0;         // n
    double largestRadius = 0;
};

RemapModel Remap_BuildModel(const calib::CameraModel& camera, const RemapLayout& layout);
// The camera's table (n clamped to 22), extended; inverse re-expresses it on
// the distorted radius first.
DistortionTable DistortionTable_FromModel(const calib::CameraModel& camera, int inverse);
DistortionTable DistortionTable_Make(const double* radii, const double* distortions, int n, int inverse);
// Radial factor 1 + D(r)/100; false when r is not below the largest radius
// or the table has no bracketing entry.
bool DistortionTable_Factor(const DistortionTable& table, double r, double* factor);

// ---- Building ---------------------------------------------------------------

// Fills map (gridWidth x gridHeight records of X, Y) from the n calibration
// entries and returns the fill scale used through outScaleX/Y. 0xD000, 0xD114
// (map complete) or 0xD115. A null map only runs the fill-scale search.
uint32_t DistortionMap_Build(double* map, const RemapModel& model, const double* radii, const double* distortions,
                             int n, int inverse, double* outScaleX, double* outScaleY, int fitToFrame);

// Table entries for the rows and columns of rect (columns clipped to the
// output width, written layout.columnShift entries to the right) from a
// coordinate map of mapWidth x mapHeight records, through warpMatrix.
void RemapLut_Build(const RemapTables& tables, const RemapLayout& layout, const double warpMatrix[9],
                    const double* coordinateMap, uint16_t mapWidth, uint16_t mapHeight, const uint16_t rect[4]);

// Tables of the whole output frame for a model: the entries of the fitted
// forward map (DistortionMap_Build) sampled through the homography
// (RemapLut_Build), computed without keeping the map: only the map rows the
// table reads are built, each while its table rows are. Returns 0, or
// 0xD114/0xD115 with every entry the border value, 0xC115 for null tables,
// 0xC117 for an empty layout. fillScale (optional) receives the fill scale.
uint32_t Remap_BuildTables(const RemapModel& model, const DistortionTable& table, const RemapLayout& layout,
                           const RemapTables& tables, double* fillScale = nullptr);
// The same from a camera of the calibration.
uint32_t Remap_BuildCamera(const RemapTables& tables, const calib::CameraModel& camera, const RemapLayout& layout,
                           double* fillScale = nullptr);

// Builds tables for this call only and warps planes of a source of
// srcWidth x srcHeight bytes each, back to back, into planes of stride x
// outHeight bytes: planes 0 warps plane 0, 1 planes 0..2, 2 planes 1 and 2,
// 3 or more nothing. Returns what Remap_BuildCamera returns.
uint32_t Remap_BuildAndApply(uint8_t* dst, const uint8_t* src, const calib::CameraModel& camera,
                             const RemapLayout& layout, uint32_t planes);

// Warps one 8-bit plane through a table over rect (inclusive). Tables and
// dst share dstStride; the source needs at least 2 rows and 2 columns.
void Remap_ApplyPlane(uint8_t* dst, const uint8_t* src, const uint32_t* offsetTable,
                      const uint16_t* columnWeightTable, const uint16_t* rowWeightTable, uint32_t srcStride,
                      uint32_t dstStride, const uint16_t rect[4]);

}  // namespace kvdsr::remap
