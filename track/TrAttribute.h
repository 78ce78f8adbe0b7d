#pragma once

#include "base/Array.h"
#include "image/GenRect.h"
#include "krovel/AffineTransform.h"
#include "track/TrNode.h"

/// One key of an attribute: a value at a whole frame.
template <class T> struct TrAttributeKey {
    T value{};
    int frame = 0;
};

/// A keyframed value of type T: sorted keys at whole frames plus one unkeyed
/// value that is read while there are no keys. Between keys the value is
/// interpolated linearly; before the first key and after the last it holds
/// the end key's value.
template <class T> class TrAttribute : public TrAttributeBase {
public:
    /// The value at `frame`.
    virtual T getValue(int frame) = 0;
    /// Keys `value` at `frame`, replacing a key already there.
    virtual void setValue(int frame, const T& value) = 0;
    /// Discards every key and makes `value` the value at every frame.
    virtual void setValue(const T& value) = 0;
    /// The index of the first key at or after `frame`; the key count when
    /// every key is earlier, -1 when there are no keys.
    virtual int findKey(int frame) = 0;
};

/// The attribute implementation, instantiated for points, rects, affine
/// transforms and doubles.
///
/// Keys are held in strictly increasing frame order, at most one per frame,
/// and looked up by a linear scan: an attribute holds at most one key per
/// frame of a shot.
template <class T> class TrAttributeImpl : public TrAttribute<T> {
public:
    /// An attribute attached to `owner` (not owned; may be null). The
    /// unkeyed value is zero for points, rects and doubles and the identity
    /// for transforms.
    explicit TrAttributeImpl(TrNode* owner);
    ~TrAttributeImpl() override;

    /// Does nothing when no key sits at `frame`. A frame later than every
    /// key is an index error: BadIndexException "Array::operator[]".
    void clearValue(int frame) override;
    bool isKeyed(int frame) override;
    bool firstKey(int& frame) override;
    bool lastKey(int& frame) override;

    T getValue(int frame) override;
    void setValue(int frame, const T& value) override;
    void setValue(const T& value) override;
    int findKey(int frame) override;

    /// The keys in frame order.
    const Array<TrAttributeKey<T>>& getKeys() const { return keys; }
    int getKeyCount() const { return keys.getCount(); }
    /// The value read while there are no keys.
    const T& getUnkeyedValue() const { return value; }

private:
    T value{};
    Array<TrAttributeKey<T>> keys;
};

extern template class TrAttributeImpl<Orvane::GenPoint<double>>;
extern template class TrAttributeImpl<Orvane::GenRect<double>>;
extern template class TrAttributeImpl<AffineTransform>;
extern template class TrAttributeImpl<double>;
