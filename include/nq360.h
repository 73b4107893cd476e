/**
 * @file nq360.h
 * Describes the pictures and movies of a dual-lens 360-degree camera and stitches the two halves of a shot into
 * one equirectangular panorama.
 *
 * Plain C, usable from C and C++. Every function works synchronously on the caller's thread; two threads may
 * call at once. All paths are names in the file system (never patterns or addresses), zero-terminated, in
 * whatever bytes the file system uses. Texts and paths are only read during the call.
 */
#ifndef NQ360_H
#define NQ360_H

#ifdef __cplusplus
extern "C" {
#endif

/** A correction value that leaves its plane as it is. */
#define CORRECT_NONE (-99999999)

/** What a reply reports. Exactly one of FINISHED, CANCELLED and FAILED ends each operation. */
typedef enum NQ360_STATE {
    NQ360_STARTED = 0,   /**< "frame_count" is the number of frames that will be written, give or take two */
    NQ360_PROGRESS = 1,  /**< "frame_count" is the number of frames written so far */
    NQ360_FINISHED = 2,  /**< done; the reply is the result */
    NQ360_CANCELLED = 3, /**< the cancel marker was seen; no file is left */
    NQ360_FAILED = 4     /**< "errnum" and "errstr" say why; no file is left */
} NQ360_STATE;

/**
 * Receives each reply, on the thread of the call.
 *
 * @param state  what the reply reports
 * @param json   one JSON object, at most 10239 bytes; it belongs to the library and is released when the callback
 *               returns, so copy what is to be kept
 */
typedef void (*NQ360_CALLBACK)(NQ360_STATE state, const char* json);

/**
 * Describes one picture (.jpg, .jpeg) or movie (.mov, .mp4; upper or lower case) and writes a thumbnail.
 *
 * @param input_path       the file. Null or missing: errnum 10000. Another extension, or a file that FFmpeg cannot
 *                         open: 10001.
 * @param thumbnail_path   where the thumbnail goes, a JPEG by its name; null: none is wanted. What stands there is
 *                         replaced, and removed when the call fails. Not writable, or the same file as
 *                         input_path: errnum 10003, and nothing is touched. 50 MiB or less free: 10004.
 * @param thumbnail_width  pixels; 0, or more than the input has: the input's width. The height follows the input's
 *                         shape. Negative: errnum 19999.
 * @param writeFlag        0: a thumbnail only for files of the camera or of the stitching software; else for all
 * @param callback         gets one reply, FINISHED or FAILED; may be null
 * @return 0 after any normal end, a reported failure included; -1 when an unexpected failure was reported
 */
int NQ360_analyze_image(const char* input_path, const char* thumbnail_path, int thumbnail_width, int writeFlag,
                        NQ360_CALLBACK callback);

/**
 * Stitches the two halves of a shot, two pictures or two movies, into one equirectangular panorama.
 *
 * A picture may go with a movie: it is stitched to every frame.
 *
 * @param movie_path1,movie_path2  the halves, lens 1 and lens 2; square, both 3888, 1936 or 1440 pixels wide. Null
 *                      or missing: errnum 30000. Other sizes, and files that cannot be read: 30001.
 * @param export_path   the panorama: .jpg for two pictures, .mov or .mp4 where a movie is among the inputs, else
 *                      errnum 39999, as for null. An existing file is replaced; it is removed when the call fails.
 *                      Not writable, or the same file as an input, the band picture or the marker: errnum 30003, and
 *                      nothing is touched. No room for a copy of both inputs and more than 50 MiB besides: 30004.
 * @param band_path     a picture to lay over the seam, scaled to twice the lens width; null: none. It is
 *                      brought to limited range (white becomes 235), as movies have it. Not readable: errnum 39999.
 * @param width,height  of the panorama, in pixels: 2 to 32766 each; for movies even, at least 16 x 16, and
 *                      at most 9437184 pixels in all. Otherwise errnum 39999.
 * @param angle         turn of the panorama about its y axis, degrees. 0: lens 1 looks up; 90: lens 2 looks at the
 *                      horizon in the middle of the panorama; -90: lens 1 does.
 * @param y1,u1,v1      added to each byte of lens 1's planes, the sum held to 0..255; #CORRECT_NONE: as it is
 * @param y2,u2,v2      the same for lens 2
 * @param audio_source  0: sound of movie_path1; 1: of movie_path2; any other value: none
 * @param datetime      the capture date and time as it is to stand in the metadata; null: empty. It goes into XML as
 *                      it is: no '<' or '&', and at most 4000 bytes.
 * @param cancel_path   the export stops at its next progress reply once a file stands here; null: never
 * @param callback      gets STARTED, PROGRESS every 10 frames (every 100 from 1010 frames on) and one end; may be
 *                      null
 * @param angle1,angle2 turn of each lens picture about its centre, degrees
 * @param start1,start2 first instant of each movie that is exported, seconds
 * @param end1,end2     last instant; one behind the movie's end takes it to its end. Stills take no part in the
 *                      range. No pair of frames in it: errnum 39999.
 * @return 0 after any normal end, a reported failure or cancel included; -1 when an unexpected failure was reported
 */
int NQ360_export(const char* movie_path1, const char* movie_path2, const char* export_path, const char* band_path,
                 int width, int height, int angle, int y1, int u1, int v1, int y2, int u2, int v2, int audio_source,
                 const char* datetime, const char* cancel_path, NQ360_CALLBACK callback, float angle1, float angle2,
                 float start1, float start2, float end1, float end2);

/**
 * Writes the sound of a movie to a file of its own: 16-bit stereo PCM at the movie's sample rate.
 *
 * @param movie_path   the movie. Null or missing: errnum 20000. Not readable, or without sound: 20001.
 * @param audio_path   the sound file, its kind taken from its name (.wav, .mov, .caf, ...). Replaced when it exists,
 *                     removed when the call fails. Null: errnum 20001. Not writable, or the same file as the movie
 *                     or the marker: 20003, and nothing is touched. 50 MiB or less free: 20004. A kind that cannot
 *                     hold this sound: 29999.
 * @param bit_rate     bits per second; 0: the movie's own. PCM does not use it.
 * @param cancel_path  as for #NQ360_export
 * @param callback     gets STARTED and PROGRESS counted in packets of sound, and one end; may be null
 * @return 0 after any normal end; -1 when an unexpected failure was reported. A FINISHED reply that holds "errnum"
 *         tells of an unexpected failure while writing: the file may be incomplete.
 */
int NQ360_get_audio(const char* movie_path, const char* audio_path, int bit_rate, const char* cancel_path,
                    NQ360_CALLBACK callback);

/**
 * Tells how much room is free.
 *
 * @param path  names the volume: a directory itself, anything else by its parent directory; null: by the current
 *              directory
 * @return bytes free to an unprivileged user on that volume; 0 when it cannot be asked
 */
unsigned long long NQ360_freesize(const char* path);

#ifdef __cplusplus
}
#endif

#endif
