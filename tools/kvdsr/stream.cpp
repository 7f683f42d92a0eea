#include "stream.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "commands.h"
#include "image_io.h"
#include "status_text.h"

namespace kvdsrtool {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// A raw file read one frame at a time; its length is checked up front.
class RawStream {
public:
    RawStream(const std::string& path, size_t frameBytes, const std::string& what)
        : path_(path), frameBytes_(frameBytes), what_(what) {
        in_.open(path, std::ios::binary | std::ios::ate);
        if (!in_) throw std::runtime_error(path + ": cannot open");
        const auto size = static_cast<uint64_t>(in_.tellg());
        in_.seekg(0);
        whole_ = size / frameBytes;
        leftover_ = size % frameBytes;
    }
    uint64_t wholeFrames() const { return whole_; }
    uint64_t leftover() const { return leftover_; }
    std::string describe() const {
        return path_ + ": " + std::to_string(whole_) + " whole " + what_ + "(s) of " + std::to_string(frameBytes_) +
               " bytes" + (leftover_ ? " and " + std::to_string(leftover_) + " bytes more" : "");
    }
    void read(uint8_t* dst) {
        in_.read(reinterpret_cast<char*>(dst), static_cast<std::streamsize>(frameBytes_));
        if (!in_) throw std::runtime_error(path_ + ": read failed (was the file changed while running?)");
    }
    void rewind() { in_.seekg(0); }

private:
    std::string path_;
    size_t frameBytes_;
    std::string what_;
    std::ifstream in_;
    uint64_t whole_ = 0, leftover_ = 0;
};

// How many frames to run: --frames N needs N whole frames in every image
// stream; without it every stream must hold the same whole number of frames.
uint64_t frameCount(const std::vector<std::unique_ptr<RawStream>>& streams, int64_t asked) {
    if (asked < 0) throw std::invalid_argument("--frames must be 0 (every frame) or more");
    uint64_t n = static_cast<uint64_t>(asked);
    for (const auto& s : streams) {
        if (s->wholeFrames() == 0) throw std::runtime_error(s->describe() + ": not even one frame");
        if (asked > 0) {
            if (s->wholeFrames() < n)
                throw std::runtime_error(s->describe() + ", but --frames asks for " + std::to_string(n));
            continue;
        }
        if (s->leftover())
            throw std::runtime_error(s->describe() +
                                     ": the last frame is truncated (or --size/--format do not match the file); "
                                     "pass --frames N to run the whole frames only");
        if (n == 0) n = s->wholeFrames();
        if (s->wholeFrames() != n)
            throw std::runtime_error(s->describe() + ", but the first input holds " + std::to_string(n) +
                                     " frames; pass --frames N to run the first N");
    }
    return n;
}

class RawSink {
public:
    explicit RawSink(const std::string& path) : path_(path) {
        if (path == "-") return;
        file_.open(path, std::ios::binary);
        if (!file_) throw std::runtime_error(path + ": cannot create");
    }
    void write(const YuvFrame& f) {
        std::ostream& out = path_ == "-" ? std::cout : file_;
        out.write(reinterpret_cast<const char*>(f.data.data()), static_cast<std::streamsize>(f.data.size()));
        if (!out) throw std::runtime_error((path_ == "-" ? std::string("standard output") : path_) + ": write failed");
    }
    void finish() {
        if (path_ == "-") std::cout.flush();
        else file_.close();
        if (path_ != "-" && !file_) throw std::runtime_error(path_ + ": write failed");
        if (path_ != "-") std::cerr << "wrote " << path_ << "\n";
    }

private:
    std::string path_;
    std::ofstream file_;
};

void drawProgress(uint64_t done, uint64_t total, double seconds) {
    constexpr int kBar = 30;
    const int filled = static_cast<int>(kBar * done / total);
    std::fprintf(stderr, "\r[%.*s%*s] %llu/%llu frames, %.1f fps", filled, "##############################",
                 kBar - filled, "", static_cast<unsigned long long>(done), static_cast<unsigned long long>(total),
                 seconds > 0 ? done / seconds : 0.0);
    if (done == total) std::fputc('\n', stderr);
    std::fflush(stderr);
}

}  // namespace

std::string rawOutputPath(const std::string& prefix, const std::string& name, Layout l, bool single) {
    if (prefix == "-") return prefix;
    return (single ? prefix : prefix + "-" + name) + "." + layoutName(l);
}

int runStream(const Calibration& calib, EngineSetup setup, const StreamOptions& opt) {
    if (opt.raw.empty()) throw std::invalid_argument("--frames writes raw streams only: give --raw PREFIX (or -)");
    if (opt.image.format.empty() || opt.image.size.empty())
        throw std::invalid_argument("--frames reads raw YUV streams: give --format and --size");
    for (const std::string& p : opt.images)
        if (isPngOrJpeg(p)) throw std::invalid_argument(p + ": --frames reads raw YUV streams, not PNG or JPEG");
    setup.layout = parseLayout(opt.image.format);
    parseSize(opt.image.size, setup.width, setup.height);
    if ((setup.layout != Layout::I444 && setup.layout != Layout::Gray) && (setup.width % 2 || setup.height % 2))
        throw std::invalid_argument("a 4:2:0 frame needs even width and height");
    const size_t frameBytes = YuvFrame::bytesFor(setup.layout, setup.width, setup.height);

    std::vector<std::unique_ptr<RawStream>> images;
    for (const std::string& p : opt.images)
        images.push_back(std::make_unique<RawStream>(p, frameBytes, std::string(layoutName(setup.layout)) + " " +
                                                                        opt.image.size + " frame"));
    const uint64_t count = frameCount(images, opt.frames);

    // The map: one for every frame (PNG, or a raw file of exactly one map),
    // or a raw stream with a map per frame.
    DepthMap depthTemplate;
    std::unique_ptr<RawStream> depthStream;
    if (needsDepth(setup)) {
        if (isPngOrJpeg(opt.depth) || opt.depthOptions.format.empty() || opt.depthOptions.size.empty()) {
            depthTemplate = loadDepth(opt.depth, opt.depthOptions);
        } else {
            depthTemplate = emptyDepth(opt.depthOptions);
            depthStream = std::make_unique<RawStream>(opt.depth, depthTemplate.bytesPerFrame(),
                                                      opt.depthOptions.format + " " + opt.depthOptions.size + " map");
            if (depthStream->leftover() || depthStream->wholeFrames() == 0 ||
                (depthStream->wholeFrames() != 1 && depthStream->wholeFrames() < count))
                throw std::runtime_error(depthStream->describe() + ": give one map for every frame or one for all " +
                                         std::to_string(count) + " frames");
        }
        setup.depthWidth = depthTemplate.width;
        setup.depthHeight = depthTemplate.height;
    }

    EngineSession session(setup);
    const auto names = outputNames(setup);
    std::vector<RawSink> sinks;
    if (opt.raw == "-") {
        sinks.emplace_back("-");
    } else {
        for (size_t i = 0; i < names.size(); ++i)
            sinks.emplace_back(rawOutputPath(opt.raw, names[i], setup.layout, names.size() == 1));
    }

    const auto t0 = Clock::now();
    const Status init = session.init(calib);
    const double initSeconds = secondsSince(t0);
    if (!init.ok()) {
        std::cerr << "kvdsr: " << describeStatus(init.call, init.code) << "\n";
        return kExitEngine;
    }

    const bool tty = isatty(STDERR_FILENO) != 0;
    std::vector<YuvFrame> frames(images.size());
    for (YuvFrame& f : frames) f = makeFrame(setup.layout, setup.width, setup.height);
    DepthMap depth = depthTemplate;
    std::vector<uint64_t> uniform(names.size(), 0);
    double engineSeconds = 0;
    const auto start = Clock::now();
    for (uint64_t i = 0; i < count; ++i) {
        for (size_t k = 0; k < images.size(); ++k) images[k]->read(frames[k].data.data());
        if (depthStream) {
            if (depthStream->wholeFrames() == 1) depthStream->rewind();
            depthStream->read(depth.bytes.data());
        } else {
            depth.bytes = depthTemplate.bytes;  // the engines repair the map in place
        }
        const Status s = session.run(frames, needsDepth(setup) ? &depth : nullptr);
        engineSeconds += session.lastCallSeconds();
        if (!s.ok()) {
            if (tty) std::fputc('\n', stderr);
            std::cerr << "kvdsr: frame " << i << ": " << describeStatus(s.call, s.code) << "\n";
            return kExitEngine;
        }
        for (size_t k = 0; k < names.size(); ++k) {
            const std::string w = uniformFrameWarning(session.outputs()[k]);
            if (!w.empty() && uniform[k]++ == 0) {
                if (tty) std::fputc('\n', stderr);
                std::cerr << "kvdsr: warning: frame " << i << ", output " << names[k] << ": " << w << "\n";
            }
            sinks[opt.raw == "-" ? 0 : k].write(session.outputs()[k]);
        }
        if (tty) drawProgress(i + 1, count, secondsSince(start));
    }
    const double total = secondsSince(start);
    for (RawSink& s : sinks) s.finish();
    for (size_t k = 0; k < names.size(); ++k)
        if (uniform[k] > 1)
            std::cerr << "kvdsr: warning: output " << names[k] << " was uniform in " << uniform[k] << " of " << count
                      << " frames\n";
    std::fprintf(stderr,
                 "%llu frames in %.3f s: %.2f fps (engine calls alone %.2f fps, %.2f ms a frame; Init %.1f ms)\n",
                 static_cast<unsigned long long>(count), total, total > 0 ? count / total : 0.0,
                 engineSeconds > 0 ? count / engineSeconds : 0.0, 1000 * engineSeconds / count, 1000 * initSeconds);
    return kExitOk;
}

}  // namespace kvdsrtool
