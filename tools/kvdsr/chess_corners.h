// Chessboard corners in a pair of views, to measure how well a pair is
// aligned: residual vertical disparity (rectification) and horizontal
// disparity (focal shift) of matching corners.
#pragma once

#include "yuv_frame.h"

namespace kvdsrtool {

struct CornerDisparity {
    bool found = false;  // the board was found in both views
    int corners = 0;
    double meanAbsDy = 0, maxAbsDy = 0;  // |y_a - y_b|, pixels
    double meanDx = 0;                   // x_a - x_b, pixels
};

// The 9x6 inner corners of opencv-doc's board, found in the luma of each
// view (sub-pixel refined).
CornerDisparity measureBoard(const YuvFrame& a, const YuvFrame& b);

}  // namespace kvdsrtool
