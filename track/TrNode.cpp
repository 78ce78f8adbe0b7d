#include "track/TrNode.h"

void TrAttributeBase::setOwner(TrNode* newOwner) {
    ownerConnection.disconnect();
    ownerConnection = Orvane::SignalConnection();
    owner = newOwner;
    if (owner != nullptr)
        ownerConnection = changed.connect(owner, &TrNode::attributeChanged);
}

void TrNode::attributeChanged() {
    changed();
}

void TrNode::nodeChanged() {
    changed();
}

void TrNode::add(TrAttributeBase* attribute) {
    attribute->setOwner(this);
}

void TrNode::add(TrNode* child) {
    child->setOwner(this);
}

void TrNode::setOwner(TrNode* newOwner) {
    ownerConnection.disconnect();
    ownerConnection = Orvane::SignalConnection();
    owner = newOwner;
    if (owner != nullptr)
        ownerConnection = changed.connect(owner, &TrNode::nodeChanged);
}
