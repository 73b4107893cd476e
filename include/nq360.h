/*
 * nq360: describes the pictures and movies of a dual-lens 360-degree camera and stitches the two halves of a
 * shot into one equirectangular panorama.
 *
 * Plain C, usable from C and C++. Every function works synchronously on the caller's thread; two threads may
 * call at once. All paths are names in the file system (never patterns or addresses), zero-terminated, in
 * whatever bytes the file system uses.
 */
#ifndef NQ360_H
#define NQ360_H

#ifdef __cplusplus
extern "C" {
#endif

/* A correction value that leaves its plane as it is. */
#define CORRECT_NONE (-99999999)

/* What a reply reports. Exactly one of FINISHED, CANCELLED and FAILED ends each operation. */
typedef enum NQ360_STATE {
    NQ360_STARTED = 0,   /* "frame_count" is the number of frames that will be written */
    NQ360_PROGRESS = 1,  /* "frame_count" is the number of frames written so far */
    NQ360_FINISHED = 2,  /* done; the reply is the result */
    NQ360_CANCELLED = 3, /* the cancel marker was seen; no file is left */
    NQ360_FAILED = 4     /* "errnum" and "errstr" say why; no file is left */
} NQ360_STATE;

/*
 * Receives each reply, on the thread of the call. `json` is one JSON object; it belongs to the library and is
 * released when the callback returns, so copy what is to be kept.
 */
typedef void (*NQ360_CALLBACK)(NQ360_STATE state, const char* json);

/*
 * Describes one picture (.jpg, .jpeg) or movie (.mov, .mp4; upper or lower case) and writes a thumbnail.
 *
 * input_path       the file. Null or missing: errnum 10000.
 * thumbnail_path   where the thumbnail goes, a JPEG by its name; null: none is wanted. Removed when the call
 *                  fails. The same file as input_path: errnum 10003, and nothing is touched.
 * thumbnail_width  pixels; 0, or more than the input has: the input's width. The height follows the input's
 *                  shape. Negative: errnum 19999.
 * writeFlag        0: a thumbnail only for files of the camera or of the stitching software; else for all.
 * callback         gets one reply, state FINISHED or FAILED; may be null.
 *
 * Returns 0 after any normal end, a reported failure included; -1 when an unexpected failure was reported.
 */
int NQ360_analyze_image(const char* input_path, const char* thumbnail_path, int thumbnail_width, int writeFlag,
                        NQ360_CALLBACK callback);

/*
 * Stitches the two halves of a shot, two pictures or two movies, into one equirectangular panorama.
 *
 * movie_path1/2    the halves, lens 1 and lens 2; square, both 3888, 1936 or 1440 pixels wide.
 * export_path      the panorama: .jpg for two pictures, .mov or .mp4 where a movie is among the inputs. An
 *                  existing file is replaced; the file is removed when the call fails. The same file as an
 *                  input, the band picture or the marker: errnum 30003, and nothing is touched.
 * band_path        a picture to lay over the seam, scaled to twice the lens width; null: none. A JPEG is squeezed
 *                  to limited range on the way (white becomes 235), as movies have it.
 * width, height    of the panorama, in pixels: 2 to 32766 each; for movies even, at least 16 x 16 and at most
 *                  9437184 pixels in all. Otherwise errnum 39999.
 * angle            turn of the panorama about its y axis, degrees. 0: lens 1 looks up and lens 2 down; 90: lens 2
 *                  looks at the horizon in the middle of the panorama, lens 1 at its left and right edge.
 * y1 u1 v1         added to each byte of lens 1's planes, the sum held to 0..255; CORRECT_NONE: as it is.
 * y2 u2 v2         the same for lens 2.
 * audio_source     0: sound of movie_path1; 1: of movie_path2; any other value: none.
 * datetime         the capture date and time as it is to stand in the metadata; null: empty.
 * cancel_path      the export stops at its next progress reply once a file stands here; null: never.
 * callback         gets STARTED, PROGRESS every 10 frames (every 100 from 1010 frames on) and one end;
 *                  may be null.
 * angle1, angle2   turn of each lens picture about its centre, degrees.
 * start1, start2   first instant of each movie that is exported, seconds.
 * end1, end2       last instant. Stills take no part in the range.
 *
 * Returns 0 after any normal end, a reported failure or cancel included; -1 when an unexpected failure was
 * reported.
 */
int NQ360_export(const char* movie_path1, const char* movie_path2, const char* export_path, const char* band_path,
                 int width, int height, int angle, int y1, int u1, int v1, int y2, int u2, int v2, int audio_source,
                 const char* datetime, const char* cancel_path, NQ360_CALLBACK callback, float angle1, float angle2,
                 float start1, float start2, float end1, float end2);

/*
 * Writes the sound of a movie to a file of its own: 16-bit stereo PCM at the movie's sample rate.
 *
 * movie_path   the movie.
 * audio_path   the sound file, its kind taken from its name (.wav, .mov, .caf, ...). Replaced when it
 *              exists, removed when the call fails. Null: errnum 20001.
 * bit_rate     bits per second; 0: the movie's own. PCM does not use it.
 * cancel_path  as for NQ360_export.
 * callback     gets STARTED and PROGRESS counted in packets of sound, and one end; may be null.
 *
 * Returns 0 after any normal end; -1 when an unexpected failure was reported. A FINISHED reply that holds
 * "errnum" tells of an unexpected failure while writing: the file may be incomplete.
 */
int NQ360_get_audio(const char* movie_path, const char* audio_path, int bit_rate, const char* cancel_path,
                    NQ360_CALLBACK callback);

/*
 * Bytes free to an unprivileged user on the volume that holds `path`: a directory itself, anything else by
 * its parent directory. 0 when the volume cannot be asked.
 */
unsigned long long NQ360_freesize(const char* path);

#ifdef __cplusplus
}
#endif

#endif
