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

#include <stddef.h>

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
    NQ360_CANCELLED = 3, /**< the call was stopped; what it wrote is removed */
    NQ360_FAILED = 4     /**< "errnum" and "errstr" say why; what it wrote is removed */
} NQ360_STATE;

/**
 * Receives each reply, on the thread of the call. It must not throw.
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
 *                         replaced, and removed when the call fails. Refused, and nothing is touched: not writable, or
 *                         the same file as input_path (errnum 10003), 50 MiB or less free (10004).
 * @param thumbnail_width  pixels; 0, or more than the input has: the input's width. The height follows the input's
 *                         shape. Negative: errnum 19999.
 * @param writeFlag        0: a thumbnail only for files of the camera or of the stitching software; else for all
 * @param callback         gets one reply, FINISHED or FAILED; may be null
 * @return 0, also after a reported failure; -1 after one of the unexpected ones. Judge by the reply's state.
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
 *                      Refused, and nothing is touched: an input that is missing, a path that is not writable or the
 *                      same file as an input, the band picture or the marker (errnum 30003), no room for a copy of
 *                      both inputs and more than 50 MiB besides (30004).
 * @param band_path     a picture to lay over the seam, scaled to twice the lens width; null: none. It is
 *                      brought to limited range (white becomes 235), as movies have it. Not readable: errnum 39999.
 * @param width,height  of the panorama, in pixels: 2 to 32766 each and about 268 million in all, which is what
 *                      FFmpeg holds; for movies even, at least 16 x 16, and
 *                      at most 9437184 pixels in all. Otherwise errnum 39999.
 * @param angle         turn of the panorama about its y axis, degrees. 0: lens 1 looks up; 90: lens 2 looks at the
 *                      horizon in the middle of the panorama; -90: lens 1 does.
 * @param y1,u1,v1      added to each byte of lens 1's planes, the sum held to 0..255; #CORRECT_NONE: as it is
 * @param y2,u2,v2      the same for lens 2
 * @param audio_source  0: sound of movie_path1; 1: of movie_path2; any other value: none. The panorama's sound has the
 *                      sample rate of that movie, and whole blocks of 1000 samples.
 * @param datetime      the capture date and time as it is to stand in the metadata; null: empty. It goes into XML as
 *                      it is: no '<' or '&', and at most 4000 bytes.
 * @param cancel_path   the export stops at its next progress reply once a file stands here; null: never
 * @param callback      gets STARTED, PROGRESS every 10 frames (every 100 from 1010 frames on) and one end; may be
 *                      null
 * @param angle1,angle2 turn of each lens picture about its centre, degrees
 * @param start1,start2 first instant of each movie that is exported, seconds
 * @param end1,end2     last instant; one behind the movie's end takes it to its end. Stills take no part in the
 *                      range. No pair of frames in it: errnum 39999.
 * @return 0, also after a reported failure or cancel; -1 after one of the unexpected ones. Judge by the last state.
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
 *                     removed when the call fails. Null: errnum 20001. Refused, and nothing is touched: a movie that
 *                     is missing, a path that is not writable or the same file as the movie or the marker (20003),
 *                     50 MiB or less free (20004). A kind that cannot hold this sound: 29999.
 * @param bit_rate     bits per second; 0: the movie's own. PCM does not use it. Negative: errnum 29999.
 * @param cancel_path  as for #NQ360_export
 * @param callback     gets STARTED and PROGRESS counted in packets of sound, and one end; may be null
 * @return 0, also after a reported failure or cancel; -1 after one of the unexpected ones. Judge by the last state. A
 *         FINISHED reply that holds "errnum" tells of an unexpected failure while writing: the file is kept and may be
 *         incomplete.
 */
int NQ360_get_audio(const char* movie_path, const char* audio_path, int bit_rate, const char* cancel_path,
                    NQ360_CALLBACK callback);

/**
 * Tells how much room is free.
 *
 * @param path  names the volume: a directory itself, anything else by its parent directory; null: by the current
 *              directory
 * @return bytes free to an unprivileged user on that volume, however many; 0 when it cannot be asked
 */
unsigned long long NQ360_freesize(const char* path);

/* ---- The interface with options ----
 *
 * Each job of it takes a record. NQ360_..._init fills one so that the job does what the plain function of the same
 * name does; then set what is to differ. `size` lets programs keep working when fields are added at a record's end: a
 * field that a program does not know keeps the value of init. A record whose size this library does not know, and a
 * value out of its range, end the job with errnum ..005 and an "api_errstr" that begins with the field's name.
 *
 * Whatever is written goes beside its name first and is renamed when it is whole: a failure, a cancel or a killed
 * process leaves what stood there before. An existing file's mode is kept, and a link stays a link.
 *
 * Every job returns the state that its last reply told: #NQ360_FINISHED, #NQ360_CANCELLED or #NQ360_FAILED.
 */

/**
 * Receives each reply, on the thread of the call. It must not throw.
 *
 * @param state  what the reply reports
 * @param json   as for #NQ360_CALLBACK
 * @param user   as the record has it
 * @return at #NQ360_STARTED and #NQ360_PROGRESS: 0 to go on, anything else cancels the job; else of no meaning
 */
typedef int (*NQ360_REPLY)(NQ360_STATE state, const char* json, void* user);

/**
 * Receives each log line, on the thread of the call. It must not throw.
 *
 * @param level  1: information, 3: an error
 * @param line   without the newline; it belongs to the library and is released when the callback returns
 * @param user   as the record has it
 */
typedef void (*NQ360_LOG)(int level, const char* line, void* user);

/** How the sound is written. */
typedef enum NQ360_SOUND {
    NQ360_SOUND_PCM = 0, /**< 16-bit stereo PCM, bit for bit the source's where that is the same */
    NQ360_SOUND_AAC = 1  /**< stereo AAC, which sites take */
} NQ360_SOUND;

/** What is to become of two halves. Angles in degrees, times in seconds; flags are 0 or 1. */
typedef struct NQ360_EXPORT_OPTIONS {
    size_t size; /**< of this record; set by init */

    const char* lens1;  /**< the halves, as movie_path1 of #NQ360_export ... */
    const char* lens2;  /**< ... and as movie_path2 */
    const char* output; /**< the panorama, as export_path. Must be a regular file or none yet. */

    int width; /**< of the panorama in pixels, as for #NQ360_export; both 0 (init): the usual size for the lenses, which
                    is 2880 x 1440, 3840 x 1920 or 7680 x 3840, for movies at most 3840 x 1920 */
    int height;      /**< with it */
    double angle;    /**< turn of the panorama about its y axis, as for #NQ360_export. Init: 0. Any finite number. */
    double yaw;      /**< then the look is turned to the right by this, ... Init: 0. -360 to 360. */
    double pitch;    /**< ... up by this, ... Init: 0. -360 to 360. */
    double roll;     /**< ... and its horizon clockwise by this. Init: 0. -360 to 360. */
    double turn1;    /**< turn of each lens picture about its centre, as angle1 ... Init: 0. Any finite number. */
    double turn2;    /**< ... and as angle2 */
    int correct1[3]; /**< added to Y, U and V of lens 1, the sum held to 0..255. Init: #CORRECT_NONE. Any number. */
    int correct2[3]; /**< the same for lens 2 */
    double gain1[3]; /**< factors, applied before: on Y (about 16 where the range is limited, about 0 where it is full),
                          on U and V about 128. Init: 1. 0 to 16. */
    double gain2[3]; /**< the same for lens 2 */
    const char* band; /**< as band_path. Init: null. */
    double feather; /**< on each side of the seam, over which both lenses are mixed. Init: 0, a hard seam. 0 to 5.5. */

    int audio_source; /**< 0: sound of lens1 (init); 1: of lens2; -1: none */
    int sound_codec;  /**< an #NQ360_SOUND. Init: #NQ360_SOUND_PCM. */
    double start1;    /**< first instant of lens1's movie that is exported, as for #NQ360_export. Init: 0. Any finite
                           number. */
    double end1;      /**< its last instant. Init: 3600. Any finite number. */
    double start2;    /**< the same for lens2's movie */
    double end2;      /**< the same for lens2's movie */

    const char* datetime; /**< as for #NQ360_export, but escaped where the metadata needs it. Init: null. */
    int quality;        /**< of a picture: 1 to 100; 0 (init): the encoder's own choice. 95 is near a good camera's. */
    long long bit_rate; /**< of a movie's pictures, bits per second: 1 to 288000000; 0 (init): as of the inputs */
    int keep_metadata;  /**< 1: what lens 1's file tells of the shot (camera, times, place, exposure) is kept, and the
                             spherical metadata is as its standards have it. Init: 0. */
    int web;            /**< 1: a movie's index lies in front, so that it plays while it loads. Init: 0. */
    int filter;         /**< 1: where the panorama is much smaller than the lenses' own scale, it is filtered before
                             sampling. Init: 0. */
    int workers;        /**< of a movie, whose pairs of frames are then encoded in parts of 120 that depend on nothing
                             before them: how many parts are made at a time, 1 to 256, or -1 for one per core. Its
                             bytes are the same for any number. 0 (init): one encoder for all of it, without parts. */
    int part;           /**< of a movie that several machines make: 1 to `parts`. Then output is not the movie but a
                             file of this share of the parts of 120, for #NQ360_join; the first has the sound of the
                             whole movie. workers 0 is as 1. Init: 0. */
    int parts;          /**< how many such files there will be: 1 to 100000; 0 (init): the whole movie */
    int whole_inputs_only; /**< 1: an input that cannot be read whole is refused, and the reply says how much is there.
                                0 (init): what can be read is exported. */

    const char* cancel_path; /**< as for #NQ360_export, but looked for at every frame. Init: null. */
    NQ360_REPLY reply;       /**< may be null (init) */
    NQ360_LOG log;           /**< null (init): log lines go to the standard error stream */
    void* user;              /**< handed to reply and log. Init: null. */
} NQ360_EXPORT_OPTIONS;

/**
 * Fills the record.
 *
 * @param options  null is allowed
 */
void NQ360_export_options_init(NQ360_EXPORT_OPTIONS* options);

/**
 * Stitches two halves as #NQ360_export does, with the same replies.
 *
 * A bad value: errnum 30005. An output that is neither a regular file nor free, or has no writable folder: 30003.
 *
 * @param options  the record
 * @return the state of the last reply; #NQ360_FAILED for null
 */
int NQ360_export_with(const NQ360_EXPORT_OPTIONS* options);

/** What is to be joined. */
typedef struct NQ360_JOIN_OPTIONS {
    size_t size;              /**< of this record; set by init */
    const char* const* files; /**< all files that #NQ360_export_with made of one movie's shares, in any order */
    size_t file_count;        /**< how many: 1 to 100000 */
    const char* output;       /**< the movie. Must be a regular file or none yet. */
    const char* cancel_path;  /**< as for #NQ360_export_with. Init: null. */
    NQ360_REPLY reply;        /**< may be null (init) */
    NQ360_LOG log;            /**< null (init): log lines go to the standard error stream */
    void* user;               /**< handed to reply and log. Init: null. */
} NQ360_JOIN_OPTIONS;

/**
 * Fills the record.
 *
 * @param options  null is allowed
 */
void NQ360_join_options_init(NQ360_JOIN_OPTIONS* options);

/**
 * Puts the shares of a movie together, without coding anything anew: the result is that of one #NQ360_export_with with
 * the same values and workers other than 0, in every byte, on any machine with this version of the library.
 *
 * Replies as of #NQ360_export, "movie_path1" being the file that something is wrong with, else the first one. Files
 * that are not all shares of one movie, each once, or that are damaged: errnum 30001, and "api_errstr" says what is
 * wrong. A bad value: 30005.
 *
 * @param options  the record
 * @return the state of the last reply; #NQ360_FAILED for null
 */
int NQ360_join(const NQ360_JOIN_OPTIONS* options);

/** What is to be told of a file. */
typedef struct NQ360_ANALYZE_OPTIONS {
    size_t size;           /**< of this record; set by init */
    const char* input;     /**< as input_path of #NQ360_analyze_image */
    const char* thumbnail; /**< as thumbnail_path. Init: null. */
    int thumbnail_width;   /**< as for #NQ360_analyze_image. Init: 0. 0 to 32766. */
    int thumbnail_always;  /**< 0 (init): a thumbnail only for files of the camera or of the stitching software */
    int quick;         /**< 1: for whoever lists a folder, a JPEG is decoded no further than its thumbnail needs: to a
                            half, a quarter or an eighth of its size where the thumbnail is much smaller, without a
                            thumbnail not at all. 0 (init): whole. */
    NQ360_REPLY reply; /**< may be null (init); it may not cancel */
    NQ360_LOG log;     /**< null (init): log lines go to the standard error stream */
    void* user;        /**< handed to reply and log. Init: null. */
} NQ360_ANALYZE_OPTIONS;

/**
 * Fills the record.
 *
 * @param options  null is allowed
 */
void NQ360_analyze_options_init(NQ360_ANALYZE_OPTIONS* options);

/**
 * Describes a file as #NQ360_analyze_image does. It reads little-endian EXIF too, and its reply has one more key:
 * "unread", a list of what the file should hold and could not be read ("exif", "xmp", "picture", "movie"). To know of a
 * picture, it is decoded whole. With quick and a thumbnail, all of its data is read too, and as much known of it; with
 * quick and no thumbnail it is only known whether the picture was cut off. A bad value: errnum 10005.
 *
 * @param options  the record
 * @return the state of the last reply; #NQ360_FAILED for null
 */
int NQ360_analyze_with(const NQ360_ANALYZE_OPTIONS* options);

/** What sound is to be taken out of a movie. */
typedef struct NQ360_AUDIO_OPTIONS {
    size_t size;             /**< of this record; set by init */
    const char* movie;       /**< as movie_path of #NQ360_get_audio */
    const char* output;      /**< as audio_path. Must be a regular file or none yet. */
    int sound_codec;         /**< an #NQ360_SOUND. Init: #NQ360_SOUND_PCM. */
    long long bit_rate;      /**< of AAC, bits per second: 8000 to 512000; 0 (init): the encoder's choice */
    const char* cancel_path; /**< as for #NQ360_get_audio. Init: null. */
    NQ360_REPLY reply;       /**< may be null (init) */
    NQ360_LOG log;           /**< null (init): log lines go to the standard error stream */
    void* user;              /**< handed to reply and log. Init: null. */
} NQ360_AUDIO_OPTIONS;

/**
 * Fills the record.
 *
 * @param options  null is allowed
 */
void NQ360_audio_options_init(NQ360_AUDIO_OPTIONS* options);

/**
 * Writes a movie's sound to a file of its own, as #NQ360_get_audio does with the same replies. A bad value: errnum
 * 20005. A failure is always told with #NQ360_FAILED.
 *
 * @param options  the record
 * @return the state of the last reply; #NQ360_FAILED for null
 */
int NQ360_get_audio_with(const NQ360_AUDIO_OPTIONS* options);

/**
 * A shot whose halves stay decoded, for whoever looks at it again and again. Used by one thread at a time; the library
 * knows of it nowhere else. It takes up to 3.75 bytes for each pixel of a lens picture, 57 MB for lenses of 3888 pixels
 * and 14 MB for 1936, and keeps no file open: a still's file is not needed any more, a movie's is for other frames.
 */
typedef struct NQ360_SHOT NQ360_SHOT;

/**
 * Opens lens1 and lens2 of the record and decodes them, of movies the first frames at or after start1 and start2. Of
 * the other fields it takes reply, log and user, for this call alone; those that tell how a panorama is to look must be
 * in their ranges. One reply: #NQ360_FINISHED with the lenses' "width" and "height", or #NQ360_FAILED.
 *
 * @param options  the record
 * @return the shot, to be closed by #NQ360_shot_close; null when the halves cannot be read or are not of one size and
 *         of this camera: the reply says why, as that of #NQ360_export
 */
NQ360_SHOT* NQ360_shot_open(const NQ360_EXPORT_OPTIONS* options);

/**
 * Frees the shot.
 *
 * @param shot  null is allowed
 */
void NQ360_shot_close(NQ360_SHOT* shot);

/**
 * Makes one panorama as a JPEG in memory, always filtered. It takes the fields that tell how it is to look (width and
 * height, 1024 x 512 where both are 0, to feather), start1, start2, quality (0 stands for 85), reply, log and user.
 *
 * One reply: #NQ360_FINISHED with the panorama's "width" and "height", or #NQ360_FAILED, with errnum 30005 for a bad
 * value and else as that of #NQ360_export.
 *
 * @param options  the record
 * @param shot     an open shot, whose frames are changed to those at start1 and start2 if they are others, and whose
 *                 files are taken, not lens1 and lens2; null: these are opened for this call
 * @param jpeg     receives the picture's bytes, to be released by #NQ360_free; null after a failure
 * @param size     receives their number; 0 after a failure
 * @return the state of the last reply; #NQ360_FAILED for null
 */
int NQ360_preview(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, unsigned char** jpeg, size_t* size);

/**
 * Makes one panorama as #NQ360_preview does, with the same replies, and hands out the pixels that the JPEG would be
 * made of: R, G and B, a byte each, row by row from the top without gaps. It takes the same fields but quality.
 *
 * @param options  the record
 * @param shot     as for #NQ360_preview
 * @param rgb      receives the pixels, to be released by #NQ360_free; null after a failure
 * @param size     receives the number of bytes, 3 * "width" * "height" of the reply; 0 after a failure
 * @return the state of the last reply; #NQ360_FAILED for null
 */
int NQ360_preview_rgb(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, unsigned char** rgb, size_t* size);

/**
 * Finds what makes the halves meet at the seam in brightness, colour and direction, with the record's turns,
 * corrections and gains as what is there already. It takes lens1, lens2, turn1 to gain2, start1 to end2, reply, log
 * and user. Movies are looked at in five places of their ranges: #NQ360_STARTED tells their number and #NQ360_PROGRESS,
 * with which the caller may cancel, each that is done.
 *
 * The last reply is an object with:
 * - "turn": degrees to be added to turn2, found within 10; 0 where the confidence is under 0.2.
 * - "gain1", "gain2", three numbers for Y, U and V: factors to be set in the record, without corrections. They are what
 *   two exposures need, and make lens 2 as bright as lens 1: gain1 stays.
 * - "correct1", "correct2", three whole numbers each: offsets to be set instead, with the record's gains. Each plane
 *   may take either.
 * - "step", three numbers: how far the lenses are apart in most directions along the seam, as the record has it;
 *   "step_turned", "step_corrected", "step_gained": the same after the turn, after turn and corrections, after turn and
 *   gains.
 * - "compared": the share of the seam that is neither black nor white, 0 to 1.
 * - "confidence": 0 to 1, how much better the lenses fit with this turn than with any other.
 * - "warning": in words, why the result may be of no use or the halves may not belong together (the same picture twice,
 *   two shots, two times); else empty. Swapped lenses meet as well as others: they are told by the sound, which the
 *   camera records with lens 1, and by names.
 *
 * @param options  the record
 * @param shot     as for #NQ360_preview
 * @return the state of the last reply; #NQ360_FAILED for null
 */
int NQ360_match(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot);

/**
 * Releases what the library has handed out.
 *
 * @param memory  null is allowed
 */
void NQ360_free(void* memory);

/**
 * Tells the library's version.
 *
 * @return "1.1.0" or its like; it belongs to the library
 */
const char* NQ360_version(void);

#ifdef __cplusplus
}
#endif

#endif
