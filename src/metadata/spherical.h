// The text that tells viewers that a picture or movie is a 360-degree equirectangular panorama: recognised in an
// analysed file, made for an exported one.
#pragma once

#include <string>

// Looks in an XMP or RDF text for the stitching software and the capture date; the last of each in the text
// count. The text is cut into pieces in place. `software` and `date` become null or copies that the caller
// frees with free, also when this throws for lack of memory.
//
// -1 when no software is named, 0 when it is this software, 1 when it is another. A value of a GPano element
// loses its last character; deliberate.
int isTALUMO360Viewer(char* xmp, char** software, char** date);

// Makes the text for a picture (a GPano XMP packet) or for a movie (a GSpherical document, which names no size).
// The date stands as given: it is not escaped, and too long a one cuts the text at 10239 bytes. Null is empty.
// The caller frees the text with free. Throws when there is no memory.
char* TALUMO360ViewerMetadata(bool picture, int width, int height, const char* date);

// The same for a panorama that keeps what lens 1's file tells, as the standards have it: a GPano packet that names the
// size, and a Spherical Video V1 document. The date is escaped, whatever it holds; empty: none is written.
std::string gpano_packet(int width, int height, const std::string& date);
std::string spherical_video_document(int width, int height, const std::string& timestamp);

// The boxes of Spherical Video V2 for a video track's sample description: one picture for both eyes (st3d), and the
// whole sphere, equirectangular and upright (sv3d).
std::string spherical_video_boxes();
