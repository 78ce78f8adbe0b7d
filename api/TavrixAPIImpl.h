#pragma once

#include "api/TavrixAPI.h"
#include "base/dstring.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "track/TrTrack.h"
#include "track/TrTrackListShot.h"

#include <cstdint>
#include <memory>

class TrFollow;

/// The plug-in instance: the host's TavrixAPI, the shot that its own
/// tracking driver works on, and the root node its tracks report changes to.
///
/// Host times are truncated toward zero to frames. Frame coordinates have
/// their origin at the frame centre; frame x lies in column x + W/2 and frame
/// y in row y + H - H/2. Every per-track operation checks the track index
/// (BadIndexException "Array::operator[]") except the use-switches and
/// getColorMode(), which touch no track. Nothing is caught.
///
/// The instance owns its driver, its copy of the frame in hand and one
/// reference on each track. Not copyable: the driver and the tracks are bound
/// to this object.
class TavrixAPIImpl : public TavrixAPI, public TrTrackListShot {
public:
    TavrixAPIImpl();
    ~TavrixAPIImpl() override;

    /// `time` truncated toward zero. A time that is not a number or lies
    /// outside the 32-bit frame range throws IllegalArgumentException
    /// "time out of range".
    static int intTime(float time);
    /// intTime(time).
    int frameOf(float time) const override;

    /// The failure-behaviour name of `code` 0 to 5, or null outside.
    static const char* behaviorName(int code);
    /// The code of a failure-behaviour name; an empty or unknown name is 1
    /// ("stop").
    static int behaviorCode(const dstring& name);

    // Track list.
    TrTrack* addNewTrack(double x, double y) override;
    TrTrack* insertNewTrack(int index, double x, double y) override;
    void deleteTrack(int index) override;
    void deleteAllTracks() override;

    // Frame input.
    void setTrackRange(float start, float length) override;
    void getTrackRange(float* start, float* length) override;
    void setFrameSize(int width, int height) override;
    void getFrameSize(int* width, int* height) override;
    /// Frees the previous copy, then copies width x height x 4 bytes. Null
    /// `pixels` with a non-empty frame throws NullPointerException
    /// "TavrixAPIImpl::setCurrentBuffer: null pixels"; a negative byte count
    /// fails as an allocation. Either way no copy is left.
    void setCurrentBuffer(float time, unsigned char* pixels, bool flag) override;
    /// The frame copy (alpha, red, green, blue), or null between end() and
    /// the next setCurrentBuffer().
    const unsigned char* getFrameBytes() const { return frameBytes.get(); }
    /// Bytes in the frame copy; 0 when there is none.
    int64_t getFrameByteCount() const { return frameBytes ? frameByteCount : 0; }

    // Tracking calls.
    bool begin(float time) override;
    bool track(int track, float time, bool forward) override;
    bool end(float time) override;
    /// The driver, bound to this shot.
    TrFollow* getFollow() { return follow.get(); }

    // Shot interface: frames and state.
    /// Both flags set; first is the range start and last is start + length.
    void getTrackRange(bool& hasFirst, float& first, bool& hasLast, float& last) override;
    /// A new RGBA image cut from the frame in hand; `time` is ignored. A rect
    /// inside the frame is used as it is; one that crosses the edge is
    /// clipped when `allowPartial` is set and at least a quarter of it
    /// remains across and down; anything else gives an empty image at
    /// (0, 0, 0, 0). A non-empty cut without a frame copy throws
    /// NullPointerException "TavrixAPIImpl::getImage: no current frame"; one
    /// after setFrameSize() changed the size of the copy throws
    /// IllegalArgumentException "TavrixAPIImpl::getImage: frame size changed
    /// since setCurrentBuffer".
    Orvane::Image getImage(float time, const Orvane::GenRect<int>& rect,
                           bool allowPartial) override;

    // Shot interface: the list shot serves the per-track values but these.
    /// Always "luminance", whatever the track stores; the index is not
    /// checked.
    dstring getColorMode(int track) override;
    // TavrixAPI declares these too, so they need overriders here; the list
    // shot's serve both bases. The use-switches take any index.
    double getFailureTolerance(int i) override { return TrTrackListShot::getFailureTolerance(i); }
    void setFailureTolerance(int i, double v) override {
        TrTrackListShot::setFailureTolerance(i, v);
    }
    bool getUseScale(int i) override { return TrTrackListShot::getUseScale(i); }
    void setUseScale(int i, bool on) override { TrTrackListShot::setUseScale(i, on); }
    bool getUseRotate(int i) override { return TrTrackListShot::getUseRotate(i); }
    void setUseRotate(int i, bool on) override { TrTrackListShot::setUseRotate(i, on); }
    bool getUseStretch(int i) override { return TrTrackListShot::getUseStretch(i); }
    void setUseStretch(int i, bool on) override { TrTrackListShot::setUseStretch(i, on); }

    // Host forms of the per-track values, beside the shot forms they call.
    using TrTrackListShot::getPatternRect;
    using TrTrackListShot::getPosition;
    using TrTrackListShot::getSearchedRect;
    using TrTrackListShot::getSearchRect;
    using TrTrackListShot::setPatternRect;
    using TrTrackListShot::setPosition;
    using TrTrackListShot::setSearchRect;
    void setPatternRect(int track, float time, double top, double left, double width,
                        double height) override;
    void getPatternRect(int track, float time, double* top, double* left, double* width,
                        double* height) override;
    void setSearchRect(int track, float time, double top, double left, double width,
                       double height) override;
    void getSearchRect(int track, float time, double* top, double* left, double* width,
                       double* height) override;
    void getSearchedRect(int track, float time, double* top, double* left, double* width,
                         double* height) override;
    int getTrackFailureBehavior(int track) override;
    void setTrackFailureBehavior(int track, int code) override;
    void getPosition(int track, float time, double* x, double* y) override;
    void setPosition(int track, float time, double x, double y) override;
    void getScore(int track, float time, double* score) override;
    void getTranslation(int track, float time, double* x, double* y) override;
    void getRotation(int track, float time, double* rotation) override;
    void getScale(int track, float time, double* scaleX, double* scaleY) override;
    void getStretch(int track, float time, double* stretchAxes, double* stretchDiagonals) override;
    bool hasPositionKeyframe(int track, float time) override;
    bool hasQualityKeyframe(int track, float time) override;

private:
    std::unique_ptr<TrFollow> follow;
    int32_t frameWidth = 0;
    int32_t frameHeight = 0;
    float rangeStart = 0;
    float rangeLength = 0;
    std::unique_ptr<unsigned char[]> frameBytes;
    // The size the copy was made for: getImage() refuses to read a copy
    // through a frame size set after it.
    int32_t copyWidth = 0;
    int32_t copyHeight = 0;
    int64_t frameByteCount = 0;
};
