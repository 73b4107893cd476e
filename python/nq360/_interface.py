"""The C interface as cffi takes it: what the package uses of nq360.h, word for word, without the comments."""

DECLARATIONS = """
typedef enum NQ360_STATE {
    NQ360_STARTED = 0,
    NQ360_PROGRESS = 1,
    NQ360_FINISHED = 2,
    NQ360_CANCELLED = 3,
    NQ360_FAILED = 4
} NQ360_STATE;

unsigned long long NQ360_freesize(const char* path);

typedef int (*NQ360_REPLY)(NQ360_STATE state, const char* json, void* user);

typedef void (*NQ360_LOG)(int level, const char* line, void* user);

typedef struct NQ360_EXPORT_OPTIONS {
    size_t size;

    const char* lens1;
    const char* lens2;
    const char* output;

    int width;
    int height;
    double angle;
    double yaw;
    double pitch;
    double roll;
    double turn1;
    double turn2;
    int correct1[3];
    int correct2[3];
    double gain1[3];
    double gain2[3];
    const char* band;
    double feather;

    int audio_source;
    int sound_codec;
    double start1;
    double end1;
    double start2;
    double end2;

    const char* datetime;
    int quality;
    long long bit_rate;
    int keep_metadata;
    int web;
    int filter;
    int workers;
    int part;
    int parts;
    int whole_inputs_only;

    const char* cancel_path;
    NQ360_REPLY reply;
    NQ360_LOG log;
    void* user;
} NQ360_EXPORT_OPTIONS;

void NQ360_export_options_init(NQ360_EXPORT_OPTIONS* options);

int NQ360_export_with(const NQ360_EXPORT_OPTIONS* options);

typedef struct NQ360_JOIN_OPTIONS {
    size_t size;
    const char* const* files;
    size_t file_count;
    const char* output;
    const char* cancel_path;
    NQ360_REPLY reply;
    NQ360_LOG log;
    void* user;
} NQ360_JOIN_OPTIONS;

void NQ360_join_options_init(NQ360_JOIN_OPTIONS* options);

int NQ360_join(const NQ360_JOIN_OPTIONS* options);

typedef struct NQ360_ANALYZE_OPTIONS {
    size_t size;
    const char* input;
    const char* thumbnail;
    int thumbnail_width;
    int thumbnail_always;
    int quick;
    NQ360_REPLY reply;
    NQ360_LOG log;
    void* user;
} NQ360_ANALYZE_OPTIONS;

void NQ360_analyze_options_init(NQ360_ANALYZE_OPTIONS* options);

int NQ360_analyze_with(const NQ360_ANALYZE_OPTIONS* options);

typedef struct NQ360_AUDIO_OPTIONS {
    size_t size;
    const char* movie;
    const char* output;
    int sound_codec;
    long long bit_rate;
    const char* cancel_path;
    NQ360_REPLY reply;
    NQ360_LOG log;
    void* user;
} NQ360_AUDIO_OPTIONS;

void NQ360_audio_options_init(NQ360_AUDIO_OPTIONS* options);

int NQ360_get_audio_with(const NQ360_AUDIO_OPTIONS* options);

typedef struct NQ360_SHOT NQ360_SHOT;

NQ360_SHOT* NQ360_shot_open(const NQ360_EXPORT_OPTIONS* options);

void NQ360_shot_close(NQ360_SHOT* shot);

int NQ360_preview(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, unsigned char** jpeg, size_t* size);

int NQ360_preview_rgb(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, unsigned char** rgb, size_t* size);

int NQ360_match(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot);

void NQ360_free(void* memory);

const char* NQ360_version(void);
"""
