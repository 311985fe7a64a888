#pragma once

#include "library/Track.h"

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

// How the window and the desktop reach a track's picture without every track holding its bytes.

// Names one distinct picture: equal keys mean equal bytes, so a view decodes each picture once.
// Empty when the track has no artwork. Cheap; safe on any thread.
QByteArray artworkKey(const Track& track);

// The picture's encoded bytes, or nullopt when the track has none or it can no longer be read.
// May read the disk: call it off the main thread.
std::optional<QByteArray> loadArtwork(const Track& track);

// The fingerprint a track keeps for these picture bytes (Track::artworkFingerprint): 24 bytes, the same in
// every process and on every machine. Empty bytes give an empty fingerprint.
QByteArray artworkFingerprint(QByteArrayView image);
