#pragma once

// The plug-in's only public header. A host includes this file alone, loads
// libtavrix.so and finds the two factory functions with dlsym under their
// plain names. Every other operation is a virtual call, so the order of the
// declarations below is the binary interface and must never change.

#if defined(__GNUC__)
#define TAVRIX_EXPORT __attribute__((visibility("default")))
#else
#define TAVRIX_EXPORT
#endif

class TrTrack;

/// A tracker instance: a list of tracks on one clip, the frame in hand, and
/// the keyed results of every track.
///
/// Coordinates. A frame of width W and height H has its origin at its
/// centre; x grows along a row and y grows with the row index. Frame x lies
/// in pixel column x + W/2 and frame y in row y + H - H/2 (integer halves
/// truncated), so for odd sizes the two axes are offset differently.
/// Positions and rects are expressed in these coordinates.
///
/// Times are floats truncated toward zero to frame numbers: 2.9 is frame 2
/// and -0.7 is frame 0.
///
/// Pixels. A frame is W x H pixels of four bytes in the order alpha, red,
/// green, blue, rows without padding. setCurrentBuffer() copies it, so the
/// host may reuse its buffer at once.
///
/// Tracking protocol. begin() starts a pass: the tracker re-reads every
/// track and captures each pattern from the frame in hand at the begin frame.
/// To track frames f0 to f1:
///
///     setFrameSize(W, H);
///     setCurrentBuffer(f0, pixels0, false);
///     begin(f0);
///     track(i, f0, forward);             // for each track i
///     for each later frame f:
///         setCurrentBuffer(f, pixels, false);
///         track(i, f, forward);          // for each track i still going
///     end(f1);
///
/// Call begin() once per pass, not once per frame. A host that calls begin()
/// again on every frame restarts the pass on each frame: the patterns are
/// captured anew where the tracks already are, and the tracks therefore stay
/// where they were. end() frees the frame copy, so the next pass needs a new
/// setCurrentBuffer() before its begin(). A track for which track() returned
/// false is done for the pass; do not call track() for it again.
///
/// Rects in the flat form are four doubles: top, left, width, height. A rect
/// covering x to x + width and y to y + height has top y + height (the
/// larger y) and left x. Pattern and search rects are relative to the
/// track's position. Output pointers that are null are skipped.
///
/// Errors are thrown as C++ exceptions derived from std::exception; what()
/// gives the fixed text (for example "Array::operator[]" for a track index
/// out of range). Nothing is caught inside.
///
/// The instance belongs to the host from createTavrixAPIInstance() until it
/// is passed to releaseTavrixAPIInstance(). One instance is used from one
/// thread at a time; the library starts no threads.
class TavrixAPI {
public:
    /// Destroy through releaseTavrixAPIInstance(), so that the library that
    /// allocated the instance also frees it.
    virtual ~TavrixAPI() = default;

    /// Appends a new track at (x, y) with the default settings and returns it.
    /// The pointer is an opaque handle owned by the instance: it lives until
    /// the track is deleted.
    virtual TrTrack* addNewTrack(double x, double y) = 0;
    /// As addNewTrack() but puts the track at `index` (0 <= index <= count;
    /// count appends) and moves the tracks from `index` on up one place.
    /// An index outside that range throws "Array::operator[]".
    virtual TrTrack* insertNewTrack(int index, double x, double y) = 0;
    /// Removes the track at `index` and moves those after it down. Any index
    /// at or past the last removes the last track; on an empty list it
    /// throws "Array::resize", and a negative index throws
    /// "Array::operator[]".
    virtual void deleteTrack(int index) = 0;
    virtual void deleteAllTracks() = 0;

    /// The frames a pass may cover: a start and a length (not an end).
    virtual void setTrackRange(float start, float length) = 0;
    /// Writes back the two values of setTrackRange(); null pointers are
    /// skipped.
    virtual void getTrackRange(float* start, float* length) = 0;

    /// The size of the frames handed to setCurrentBuffer(), in pixels.
    virtual void setFrameSize(int width, int height) = 0;
    /// Null pointers are skipped.
    virtual void getFrameSize(int* width, int* height) = 0;
    /// Copies width x height x 4 bytes from `pixels` (alpha, red, green,
    /// blue) as the frame in hand. `time` and `flag` are ignored: the frame
    /// in hand is the one tracked, whatever time track() is given.
    virtual void setCurrentBuffer(float time, unsigned char* pixels, bool flag) = 0;

    /// Sets the pattern's size for every frame: the rect is re-centred on
    /// the track's position, so only its width and height count. `time` is
    /// ignored.
    virtual void setPatternRect(int track, float time, double top, double left, double width,
                                double height) = 0;
    virtual void getPatternRect(int track, float time, double* top, double* left, double* width,
                                double* height) = 0;
    /// Sets the search area, relative to the track's position, for every
    /// frame. `time` is ignored.
    virtual void setSearchRect(int track, float time, double top, double left, double width,
                               double height) = 0;
    virtual void getSearchRect(int track, float time, double* top, double* left, double* width,
                               double* height) = 0;
    /// The area that was searched at `time`.
    virtual void getSearchedRect(int track, float time, double* top, double* left, double* width,
                                 double* height) = 0;

    /// The use-switches of the affine refinement hold for the whole
    /// instance: `track` is ignored and not checked. All start on.
    virtual bool getUseScale(int track) = 0;
    virtual void setUseScale(int track, bool on) = 0;
    virtual bool getUseRotate(int track) = 0;
    virtual void setUseRotate(int track, bool on) = 0;
    virtual bool getUseStretch(int track) = 0;
    virtual void setUseStretch(int track, bool on) = 0;

    /// The score below which a match counts as failed. Set it before
    /// tracking.
    virtual double getFailureTolerance(int track) = 0;
    virtual void setFailureTolerance(int track, double tolerance) = 0;
    /// What to do when a match fails: 0 default (retry with a larger search
    /// area, then predict), 1 stop, 2 predict, 3 predict and key,
    /// 4 don't predict, 5 use the existing curve. A new track reads 1.
    virtual int getTrackFailureBehavior(int track) = 0;
    /// Codes outside 0 to 5 are ignored.
    virtual void setTrackFailureBehavior(int track, int code) = 0;

    /// The track's position at `time`, interpolated between keys.
    virtual void getPosition(int track, float time, double* x, double* y) = 0;
    /// Keys the position at `time`.
    virtual void setPosition(int track, float time, double x, double y) = 0;
    /// The match quality at `time`. With a null `score` nothing is read and
    /// nothing is checked.
    virtual void getScore(int track, float time, double* score) = 0;
    /// The parts of the track's affine transform at `time`.
    virtual void getTranslation(int track, float time, double* x, double* y) = 0;
    /// Radians.
    virtual void getRotation(int track, float time, double* rotation) = 0;
    /// The transform has one uniform scale; it is written to both outputs.
    virtual void getScale(int track, float time, double* scaleX, double* scaleY) = 0;
    /// The area-preserving stretch along the axes and along the diagonals.
    virtual void getStretch(int track, float time, double* stretchAxes,
                            double* stretchDiagonals) = 0;

    /// Starts a pass at `time` (see the protocol above). Always true.
    virtual bool begin(float time) = 0;
    /// Tracks track `track` into `time` from the frame in hand, keying its
    /// position, transform and quality. False when the track is done for
    /// the pass (the match failed under its failure behaviour, or the search
    /// area left the frame).
    virtual bool track(int track, float time, bool forward) = 0;
    /// Closes the pass and frees the frame copy. Always true.
    virtual bool end(float time) = 0;

    virtual bool hasPositionKeyframe(int track, float time) = 0;
    virtual bool hasQualityKeyframe(int track, float time) = 0;
};

/// Makes a new instance; the host owns it until releaseTavrixAPIInstance().
extern "C" TAVRIX_EXPORT TavrixAPI* createTavrixAPIInstance();
/// Destroys an instance made by createTavrixAPIInstance(); null does nothing.
extern "C" TAVRIX_EXPORT void releaseTavrixAPIInstance(TavrixAPI* api);
