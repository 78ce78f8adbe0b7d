#pragma once

#include "base/SafeObject.h"
#include "base/Signal.h"
#include "base/SmartObject.h"

class TrNode;

/// Base of every keyframed attribute: a value over time that belongs to one
/// node and announces its changes to it.
///
/// The owner is not owned: the node that holds the attribute also destroys
/// it. The change signal reaches the owner's attributeChanged() through a
/// connection that goes inert when either side dies. Keyframe operations do
/// not emit by themselves; whoever changes a value announces it.
class TrAttributeBase {
public:
    TrAttributeBase() = default;
    // An attribute is wired to one owner; a copy would carry the owner
    // pointer without the connection.
    TrAttributeBase(const TrAttributeBase&) = delete;
    TrAttributeBase& operator=(const TrAttributeBase&) = delete;
    virtual ~TrAttributeBase() = default;

    /// Removes the key at `frame` if there is one.
    virtual void clearValue(int frame) = 0;
    /// True when a key sits exactly at `frame`.
    virtual bool isKeyed(int frame) = 0;
    /// Stores the first key's frame and returns true; false (and `frame`
    /// untouched) without keys.
    virtual bool firstKey(int& frame) = 0;
    /// Stores the last key's frame and returns true; false (and `frame`
    /// untouched) without keys.
    virtual bool lastKey(int& frame) = 0;

    /// Cuts the connection to the current owner, then connects `changed` to
    /// `owner`'s attributeChanged(). Null detaches.
    void setOwner(TrNode* owner);
    TrNode* getOwner() const { return owner; }

    /// Emitted when the value changes; connected to the owner.
    Orvane::Signal changed;

private:
    TrNode* owner = nullptr;
    Orvane::SignalConnection ownerConnection;
};

/// A node of the track model (a track, a shot). A change announced by a node
/// or by anything attached below it is announced again by the node, up to
/// the root.
///
/// Nodes are reference-counted (SmartPtr) and watchable (SafePtr). A node
/// keeps no list of its children: the link is only the child's owner pointer
/// and its signal connection, and whoever holds the child owns it.
class TrNode : public virtual Orvane::SafeObject, public virtual Orvane::SmartObject {
public:
    TrNode() = default;
    TrNode(const TrNode&) = delete;
    TrNode& operator=(const TrNode&) = delete;
    ~TrNode() override = default;

    /// Emits `changed`; called by the attributes attached to this node.
    virtual void attributeChanged();
    /// Emits `changed`; called by the nodes attached to this node.
    virtual void nodeChanged();
    /// Attaches `attribute` to this node (its setOwner(this)).
    virtual void add(TrAttributeBase* attribute);
    /// Attaches `child` to this node (its setOwner(this)).
    virtual void add(TrNode* child);

    /// Cuts the connection to the current owner, then connects `changed` to
    /// `owner`'s nodeChanged(). Null detaches.
    void setOwner(TrNode* owner);
    TrNode* getOwner() const { return owner; }

    /// Emitted when this node or anything below it changes.
    Orvane::Signal changed;

private:
    TrNode* owner = nullptr;
    Orvane::SignalConnection ownerConnection;
};
