#include "chess_corners.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace kvdsrtool {
namespace {

const cv::Size kBoard(9, 6);

// The detector wants squares of some size: small frames (a scaled SPR
// output) are searched at twice their size and the corners scaled back.
constexpr int kMinSearchWidth = 480;

bool findCorners(const YuvFrame& f, std::vector<cv::Point2f>& corners) {
    // Luma is the first plane of every layout.
    const cv::Mat luma(f.height, f.width, CV_8UC1, const_cast<uint8_t*>(f.data.data()));
    const double scale = f.width < kMinSearchWidth ? 2.0 : 1.0;
    cv::Mat gray = luma;
    if (scale != 1.0) cv::resize(luma, gray, cv::Size(), scale, scale, cv::INTER_LINEAR);
    if (!cv::findChessboardCorners(gray, kBoard, corners, cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE))
        return false;
    cv::cornerSubPix(gray, corners, cv::Size(11, 11), cv::Size(-1, -1),
                     cv::TermCriteria(cv::TermCriteria::EPS + cv::TermCriteria::COUNT, 30, 0.01));
    // Pixel centres at integer coordinates: x maps to (x + 0.5) / s - 0.5.
    for (auto& c : corners) c = cv::Point2f(float((c.x + 0.5) / scale - 0.5), float((c.y + 0.5) / scale - 0.5));
    return true;
}

}  // namespace

CornerDisparity measureBoard(const YuvFrame& a, const YuvFrame& b) {
    CornerDisparity r;
    std::vector<cv::Point2f> ca, cb;
    if (!findCorners(a, ca) || !findCorners(b, cb) || ca.size() != cb.size()) return r;
    r.found = true;
    r.corners = static_cast<int>(ca.size());
    for (size_t i = 0; i < ca.size(); ++i) {
        const double dy = std::fabs(ca[i].y - cb[i].y);
        r.meanAbsDy += dy;
        r.maxAbsDy = std::max(r.maxAbsDy, dy);
        r.meanDx += ca[i].x - cb[i].x;
    }
    r.meanAbsDy /= r.corners;
    r.meanDx /= r.corners;
    return r;
}

}  // namespace kvdsrtool
