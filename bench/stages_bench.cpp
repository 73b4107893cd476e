// The stages of whole jobs, one by one, on files that the sample tool makes: what a still export, a frame of a
// movie, a thumbnail and an analysis spend their time on.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/output_option.h"
#include "media/stitcher.h"
#include "metadata/exif.h"
#include "metadata/jpeg.h"
#include "metadata/mov.h"
#include "metadata/spherical.h"
#include "projection/angles.h"
#include "projection/soavfunc.h"

namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    if (!value) {
        throw std::runtime_error(std::string(name) + " is not set; run scripts/bench pieces");
    }
    return value;
}

// A file of the sample tool's, made by the first run that needs it.
std::string sample_file(const std::string& kind, int width, const std::string& extension) {
    const std::string base = environment("NQ360_BENCH_DATA") + "/" + kind + std::to_string(width) + "-";
    struct stat status;
    if (stat((base + "2" + extension).c_str(), &status) != 0) {
        const std::string command = environment("NQ360_SAMPLE") + " " + kind + " " + base + "1" + extension + " " +
                                    base + "2" + extension + " --size " + std::to_string(width) +
                                    (kind == "movie" ? " --frames 60" : "");
        if (std::system(command.c_str()) != 0) {
            throw std::runtime_error("this command failed: " + command);
        }
    }
    return base + "1" + extension;
}

struct Job {
    int lens;
    int radius;
    ImageSize output;
};

Job job_of(int lens) {
    switch (lens) {
        case 1440:
            return {lens, 675, {2880, 1440}};
        case 1936:
            return {lens, 907, {3840, 1920}};
        default:
            return {lens, 1821, {7680, 3840}};
    }
}

OutputOption option_of(const Job& job) {
    OutputOption option;
    option.output_size = job.output;
    option.correct1 = option.correct2 = create_linnercorrectmap(CORRECT_NONE, CORRECT_NONE, CORRECT_NONE);
    option.transmap = create_equidistantmap(job.output, {job.lens, job.lens}, job.radius, 0, {});
    return option;
}

// The same without whole tables, as exports have it; the look at the horizon, the seam through the poles, for
// `angle` 90.
OutputOption row_option_of(const Job& job, int64_t feather, int64_t angle) {
    OutputOption option;
    option.output_size = option.transmap.equsize = job.output;
    option.transmap.projsize = {job.lens, job.lens};
    option.radius = job.radius;
    option.rotation.yangle = radians(static_cast<double>(angle));
    option.feather = radians(static_cast<double>(feather));
    return option;
}

FramePtr decoded_still(int lens) {
    const std::string path = sample_file("still", lens, ".jpg");
    libavIF media(path.c_str());
    AVFrame* frame = nullptr;
    if (media.open_input_file(0) != 0 || media.get_frame(&frame) != 0) {
        throw std::runtime_error("cannot decode " + path);
    }
    return FramePtr(frame);
}

FramePtr empty_panorama(ImageSize size) {
    FramePtr frame(av_frame_alloc());
    frame->width = size.width;
    frame->height = size.height;
    frame->format = AV_PIX_FMT_YUV420P;
    av_frame_get_buffer(frame.get(), 0);
    return frame;
}

// Opening is what an analysis does with FFmpeg: the header, the stream's parameters and the decoder.
void open_still(benchmark::State& state) {
    const std::string path = sample_file("still", static_cast<int>(state.range(0)), ".jpg");
    for (auto _ : state) {
        libavIF media(path.c_str());
        benchmark::DoNotOptimize(media.open_input_file(0));
    }
}

void open_movie(benchmark::State& state) {
    const std::string path = sample_file("movie", static_cast<int>(state.range(0)), ".mov");
    for (auto _ : state) {
        libavIF media(path.c_str());
        benchmark::DoNotOptimize(media.open_input_file(0));
    }
}

void decode_still(benchmark::State& state) {
    const int lens = static_cast<int>(state.range(0));
    sample_file("still", lens, ".jpg");
    for (auto _ : state) {
        benchmark::DoNotOptimize(decoded_still(lens));
    }
}

void build_tables(benchmark::State& state) {
    const Job job = job_of(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(create_equidistantmap(job.output, {job.lens, job.lens}, job.radius, 0, {}));
    }
}

// Loads the two lenses and fills the panorama.
void stitch_pair(Stitcher* stitcher, const AVFrame* lens1, const AVFrame* lens2, AVFrame* panorama) {
    stitcher->load(0, lens1);
    stitcher->load(1, lens2);
    stitcher->stitch_luma(panorama);
    stitcher->stitch_chroma(panorama);
}

// A movie's pair, with everything kept that is kept.
void stitch_one_of_many(benchmark::State& state) {
    const Job job = job_of(static_cast<int>(state.range(0)));
    const OutputOption option = row_option_of(job, state.range(1), state.range(2));
    const FramePtr frame = decoded_still(job.lens);
    Stitcher stitcher(option, true);
    const FramePtr panorama = empty_panorama(job.output);
    for (auto _ : state) {
        stitch_pair(&stitcher, frame.get(), frame.get(), panorama.get());
    }
}

// A still's pair, tables and memory included.
void stitch_only_pair(benchmark::State& state) {
    const Job job = job_of(static_cast<int>(state.range(0)));
    const OutputOption option = row_option_of(job, state.range(1), state.range(2));
    const FramePtr frame = decoded_still(job.lens);
    for (auto _ : state) {
        Stitcher stitcher(option, false);
        const FramePtr panorama = empty_panorama(job.output);
        stitch_pair(&stitcher, frame.get(), frame.get(), panorama.get());
    }
}

// A preview of 1024 x 512 out of frames that are kept reduced, and what reducing one costs.
void stitch_preview(benchmark::State& state) {
    Job job = job_of(static_cast<int>(state.range(0)));
    job.output = {1024, 512};
    OutputOption option = row_option_of(job, 2, 90);
    option.filter = true;
    const FramePtr frame = decoded_still(job.lens);
    const FramePtr reduced = reduced_frame(frame.get(), Stitcher::reduction_for(option));
    for (auto _ : state) {
        Stitcher stitcher(option, false);
        const FramePtr panorama = empty_panorama(job.output);
        stitch_pair(&stitcher, reduced.get(), reduced.get(), panorama.get());
    }
}

void reduce_frame(benchmark::State& state) {
    const FramePtr frame = decoded_still(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(reduced_frame(frame.get(), 4));
    }
}

// What the stitcher is measured against: the plain function, with the copies and matrices that it makes.
void stitch_plain(benchmark::State& state) {
    const Job job = job_of(static_cast<int>(state.range(0)));
    OutputOption option = option_of(job);
    const FramePtr frame = decoded_still(job.lens);
    for (auto _ : state) {
        ImageFrame lens1 = imageframe_from_avframe(frame.get());
        ImageFrame lens2 = imageframe_from_avframe(frame.get());
        ImageFrame panorama;
        convert_equirectangular_with_map(&panorama, &lens1, &lens2, &option.band, &option.transmap, 1);
        benchmark::DoNotOptimize(panorama.YUVMats[0].data);
    }
}

void correct(benchmark::State& state) {
    const FramePtr frame = decoded_still(static_cast<int>(state.range(0)));
    ImageFrame picture = imageframe_from_avframe(frame.get());
    YuvCorrectMap map = create_linnercorrectmap(3, -2, 1);
    for (auto _ : state) {
        avcorrect_with_map(&picture, &map);
    }
}

void copy_in(benchmark::State& state) {
    const FramePtr frame = decoded_still(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(imageframe_from_avframe(frame.get()));
    }
}

// Two inputs and the encoder of their panorama, as the writer sets it up; the packets go nowhere.
std::unique_ptr<libavIF> opened_export(const std::string& path, AVCodecID codec, const char* format, ImageSize size) {
    auto media = std::make_unique<libavIF>(path.c_str(), path.c_str());
    if (media->open_input_file(0) != 0 || media->open_input_file(1) != 0 ||
        avformat_alloc_output_context2(&media->output_format, nullptr, format, nullptr) < 0 ||
        media->add_video_stream(codec, size.width, size.height, -1) < 0) {
        throw std::runtime_error(media->error_text);
    }
    return media;
}

void encode_still(benchmark::State& state) {
    const Job job = job_of(static_cast<int>(state.range(0)));
    const std::string path = sample_file("still", job.lens, ".jpg");
    const auto media = opened_export(path, AV_CODEC_ID_MJPEG, "image2", job.output);
    const OutputOption option = option_of(job);
    Stitcher stitcher(option, true);
    const FramePtr panorama = empty_panorama(job.output);
    const FramePtr frame = decoded_still(job.lens);
    stitch_pair(&stitcher, frame.get(), frame.get(), panorama.get());
    panorama->format = media->video_encoder_context->pix_fmt;
    const PacketPtr packet = new_packet();
    panorama->pts = 0;
    for (auto _ : state) {
        encode_video_frame(media->video_encoder_context, panorama.get(), packet.get());
        av_packet_unref(packet.get());
        ++panorama->pts;
    }
}

bool decode_next(libavIF* media, int which, AVPacket* packet, AVFrame* frame) {
    int got_frame = 0;
    while (!got_frame && av_read_frame(media->input_format[which], packet) >= 0) {
        media->decode_packet(which, *packet, frame, &got_frame);
        av_packet_unref(packet);
    }
    return got_frame != 0;
}

// The three steps of a movie's frame one after the other, and the share that each has. In an export they overlap.
void movie_steps(benchmark::State& state) {
    const Job job = job_of(static_cast<int>(state.range(0)));
    const std::string path = sample_file("movie", job.lens, ".mov");
    const OutputOption option = option_of(job);
    Stitcher stitcher(option, true);
    const PacketPtr packet = new_packet();
    const FramePtr lenses[2] = {new_frame(), new_frame()};
    std::chrono::duration<double> decoding{}, stitching{}, encoding{};
    int64_t frames = 0;
    for (auto _ : state) {
        const auto media = opened_export(path, AV_CODEC_ID_H264, "mov", job.output);
        const FramePtr panorama = empty_panorama(job.output);
        panorama->pts = 0;
        while (true) {
            const auto began = std::chrono::steady_clock::now();
            if (!decode_next(media.get(), 0, packet.get(), lenses[0].get()) ||
                !decode_next(media.get(), 1, packet.get(), lenses[1].get())) {
                break;
            }
            const auto decoded = std::chrono::steady_clock::now();
            stitch_pair(&stitcher, lenses[0].get(), lenses[1].get(), panorama.get());
            const auto stitched = std::chrono::steady_clock::now();
            encode_video_frame(media->video_encoder_context, panorama.get(), packet.get());
            av_packet_unref(packet.get());
            decoding += decoded - began;
            stitching += stitched - decoded;
            encoding += std::chrono::steady_clock::now() - stitched;
            panorama->pts += 1001;
            ++frames;
        }
    }
    const double all = (decoding + stitching + encoding).count();
    state.counters["ms_a_frame"] = 1000 * all / static_cast<double>(frames);
    state.counters["decoding_%"] = 100 * decoding.count() / all;
    state.counters["stitching_%"] = 100 * stitching.count() / all;
    state.counters["encoding_%"] = 100 * encoding.count() / all;
}

// Every frame of one lens movie; the figure is of one frame.
void decode_movie(benchmark::State& state) {
    const std::string path = sample_file("movie", static_cast<int>(state.range(0)), ".mov");
    int64_t frames = 0;
    for (auto _ : state) {
        libavIF media(path.c_str());
        media.open_input_file(0);
        const PacketPtr packet = new_packet();
        const FramePtr frame = new_frame();
        while (decode_next(&media, 0, packet.get(), frame.get())) {
            ++frames;
        }
    }
    state.counters["s_per_frame"] =
        benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void thumbnail(benchmark::State& state, const char* kind, const char* extension) {
    const std::string path = sample_file(kind, static_cast<int>(state.range(0)), extension);
    const std::string target = environment("NQ360_BENCH_DATA") + "/thumbnail.jpg";
    for (auto _ : state) {
        libavIF media(path.c_str());
        if (media.open_input_file(0) != 0 || media.write_tuhmbnail(target.c_str(), 320, 1) != 0) {
            state.SkipWithError(media.error_text);
        }
    }
}

// The library's log is not what is measured here.
class Silence {
  public:
    Silence() : kept_(dup(2)) {
        const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nothing, 2);
        close(nothing);
    }
    ~Silence() {
        dup2(kept_, 2);
        close(kept_);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

  private:
    int kept_;
};

template <typename Reader>
void read_metadata(benchmark::State& state, const char* kind, const char* extension) {
    const std::string path = sample_file(kind, 1936, extension);
    const Silence silence;
    for (auto _ : state) {
        Reader reader(path.c_str(), false);
        uint8_t* block = nullptr;
        char* xmp = nullptr;
        benchmark::DoNotOptimize(reader.exif_data(&block));
        benchmark::DoNotOptimize(reader.xml_data(&xmp));
        const _exif exif(block, reader.exif_length);
        benchmark::DoNotOptimize(exif.orientation);
    }
}

void read_jpeg_metadata(benchmark::State& state, const char* kind, const char* extension) {
    read_metadata<_jpeg>(state, kind, extension);
}

void read_movie_metadata(benchmark::State& state, const char* kind, const char* extension) {
    read_metadata<_mov>(state, kind, extension);
}

void recognise_software(benchmark::State& state) {
    char* const text = TALUMO360ViewerMetadata(true, 7680, 3840, "2026:01:02 03:04:05");
    const std::string original = text;
    std::free(text);
    for (auto _ : state) {
        std::string copy = original;
        char* software = nullptr;
        char* date = nullptr;
        benchmark::DoNotOptimize(isTALUMO360Viewer(copy.data(), &software, &date));
        std::free(software);
        std::free(date);
    }
}

BENCHMARK(open_still)->Arg(3888)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(open_movie)->Arg(1936)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(decode_still)->Arg(1440)->Arg(1936)->Arg(3888)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(build_tables)->Arg(1440)->Arg(1936)->Arg(3888)->Unit(benchmark::kMillisecond)->UseRealTime();
// Lens, degrees of feather on each side, angle.
void stitch_arguments(benchmark::internal::Benchmark* bench, const std::vector<int64_t>& lenses) {
    bench->ArgNames({"lens", "feather", "angle"})->ArgsProduct({lenses, {0, 2}, {0, 90}});
    bench->Unit(benchmark::kMillisecond)->UseRealTime();
}
BENCHMARK(stitch_only_pair)->Apply([](auto* bench) { stitch_arguments(bench, {1936, 3888}); });
BENCHMARK(stitch_one_of_many)->Apply([](auto* bench) { stitch_arguments(bench, {1440, 1936}); });
BENCHMARK(stitch_preview)->Arg(3888)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(reduce_frame)->Arg(3888)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(stitch_plain)->Arg(1936)->Arg(3888)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(encode_still)->Arg(1936)->Arg(3888)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(movie_steps)->Arg(1440)->Arg(1936)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(decode_movie)->Arg(1440)->Arg(1936)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(correct)->Arg(1936)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(copy_in)->Arg(1936)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(thumbnail, of_still, "still", ".jpg")->Arg(3888)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(thumbnail, of_movie, "movie", ".mov")->Arg(1936)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(read_jpeg_metadata, still, "still", ".jpg")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(read_movie_metadata, of_movie, "movie", ".mov")->Unit(benchmark::kMicrosecond);
BENCHMARK(recognise_software)->Unit(benchmark::kMicrosecond);

}  // namespace
