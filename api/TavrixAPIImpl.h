#pragma once

#include "api/TavrixAPI.h"
#include "base/Array.h"
#include "base/SmartObject.h"
#include "base/dstring.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/AffineTransform.h"
#include "track/TrNode.h"
#include "track/TrShot.h"
#include "track/TrTrack.h"

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
class TavrixAPIImpl : public TavrixAPI, public TrShot, public TrNode {
public:
    TavrixAPIImpl();
    ~TavrixAPIImpl() override;

    /// `time` truncated toward zero. A time that is not a number or lies
    /// outside the 32-bit frame range throws IllegalArgumentException
    /// "time out of range".
    static int intTime(float time);

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
    /// The same as deleteAllTracks().
    void clearTracks();
    /// The track at `index`, bounds-checked; the list keeps it.
    TrTrack* getTrack(int index);
    int getTrackCount() override;

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
    bool getTracking() override;
    void setTracking(bool tracking) override;

    // Shot interface: per-track values.
    Orvane::GenRect<double> getPatternRect(int track, float time) override;
    Orvane::GenRect<double> getSearchRect(int track, float time) override;
    Orvane::GenRect<double> getSearchedRect(int track, float time) override;
    void setPatternRect(int track, const Orvane::GenRect<double>& rect) override;
    void setSearchRect(int track, const Orvane::GenRect<double>& rect) override;
    void setSearchedRect(int track, float time, const Orvane::GenRect<double>& rect) override;
    Orvane::GenPoint<double> getPosition(int track, float time) override;
    void setPosition(int track, float time, const Orvane::GenPoint<double>& p) override;
    bool isPositionKeyed(int track, float time) override;
    bool isPositionKeyedByUser(int track, float time) override;
    void setQuality(int track, float time, double quality) override;
    double getQuality(int track, float time) override;
    bool isQualityKeyed(int track, float time) override;
    AffineTransform getTransform(int track, float time) override;
    void setTransform(int track, float time, const AffineTransform& t) override;
    /// Always "luminance", whatever the track stores; the index is not
    /// checked.
    dstring getColorMode(int track) override;
    void setColorMode(int track, const dstring& mode) override;
    double getFailureTolerance(int track) override;
    void setFailureTolerance(int track, double tolerance) override;
    dstring getFailureBehavior(int track) override;
    void setFailureBehavior(int track, const dstring& behavior) override;
    /// The use-switches belong to the instance; the index is ignored.
    bool getUseScale(int track) override;
    void setUseScale(int track, bool on) override;
    bool getUseRotate(int track) override;
    void setUseRotate(int track, bool on) override;
    bool getUseStretch(int track) override;
    void setUseStretch(int track, bool on) override;

    // Host forms of the per-track values.
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
    Array<Orvane::SmartPtr<TrTrack>> tracks;
    bool useScale = true;
    bool useRotate = true;
    bool useStretch = true;
    bool tracking = false;
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
