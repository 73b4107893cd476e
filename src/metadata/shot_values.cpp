#include "metadata/shot_values.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "metadata/big_endian.h"
#include "metadata/capture_time.h"

namespace {

// All texts together stay far below a segment's size.
constexpr size_t kMostText = 2000;

enum class Form {
    kText,
    kDate,      // "2026:01:02 03:04:05"
    kDay,       // "2026:01:02"
    kOffset,    // "+09:00"
    kDecimals,  // "25"
    kLetter,    // one of those named
    kByte,      // numbers, as many as named
    kShort,
    kLong,
    kRational,
    kSrational,
    kAnyRational,  // also 0/0, "not known"
    kUndefined,    // so many bytes, 0: as many as there are
};

struct KnownTag {
    uint16_t tag;
    Form form;
    uint32_t count = 1;
    const char* letters = "";
};

// Exif 2.32, tables 4 to 8, 10 to 13 and 15.
constexpr KnownTag kImageTags[] = {
    {0x010E, Form::kText},                                                   // ImageDescription
    {kMake, Form::kText},     {kModel, Form::kText}, {0x0131, Form::kText},  // Software
    {kDateTime, Form::kDate}, {0x013B, Form::kText},                         // Artist
    {0x8298, Form::kText},                                                   // Copyright
};

constexpr KnownTag kPhotoTags[] = {
    {0x829A, Form::kRational},  // ExposureTime
    {0x829D, Form::kRational},  // FNumber
    {0x8822, Form::kShort},     // ExposureProgram
    {0x8827, Form::kShort},     // PhotographicSensitivity
    {0x8830, Form::kShort},     // SensitivityType
    {0x8831, Form::kLong},      // StandardOutputSensitivity
    {0x8832, Form::kLong},      // RecommendedExposureIndex
    {kDateTimeOriginal, Form::kDate},
    {kDateTimeDigitized, Form::kDate},
    {kOffsetTime, Form::kOffset},
    {kOffsetTimeOriginal, Form::kOffset},
    {kOffsetTimeDigitized, Form::kOffset},
    {0x9201, Form::kSrational},  // ShutterSpeedValue
    {0x9202, Form::kRational},   // ApertureValue
    {0x9203, Form::kSrational},  // BrightnessValue
    {0x9204, Form::kSrational},  // ExposureBiasValue
    {0x9205, Form::kRational},   // MaxApertureValue
    {0x9206, Form::kRational},   // SubjectDistance
    {0x9207, Form::kShort},      // MeteringMode
    {0x9208, Form::kShort},      // LightSource
    {0x9209, Form::kShort},      // Flash
    {0x920A, Form::kRational},   // FocalLength
    {kSubSecTime, Form::kDecimals},
    {kSubSecTimeOriginal, Form::kDecimals},
    {kSubSecTimeDigitized, Form::kDecimals},
    {0x9400, Form::kSrational},  // Temperature
    {0x9401, Form::kRational},   // Humidity
    {0x9402, Form::kRational},   // Pressure
    {0x9403, Form::kSrational},  // WaterDepth
    {kColorSpace, Form::kShort},
    {0xA217, Form::kShort},           // SensingMethod
    {0xA300, Form::kUndefined, 1},    // FileSource
    {0xA301, Form::kUndefined, 1},    // SceneType
    {0xA402, Form::kShort},           // ExposureMode
    {0xA403, Form::kShort},           // WhiteBalance
    {0xA404, Form::kRational},        // DigitalZoomRatio
    {0xA405, Form::kShort},           // FocalLengthIn35mmFilm
    {0xA406, Form::kShort},           // SceneCaptureType
    {0xA407, Form::kShort},           // GainControl
    {0xA408, Form::kShort},           // Contrast
    {0xA409, Form::kShort},           // Saturation
    {0xA40A, Form::kShort},           // Sharpness
    {0xA40C, Form::kShort},           // SubjectDistanceRange
    {0xA430, Form::kText},            // CameraOwnerName
    {0xA431, Form::kText},            // BodySerialNumber
    {0xA432, Form::kAnyRational, 4},  // LensSpecification
    {0xA433, Form::kText},            // LensMake
    {0xA434, Form::kText},            // LensModel
    {0xA435, Form::kText},            // LensSerialNumber
};

constexpr KnownTag kPlaceTags[] = {
    {kVersion, Form::kByte, 4},
    {kLatitudeRef, Form::kLetter, 1, "NS"},
    {kLatitude, Form::kRational, 3},
    {kLongitudeRef, Form::kLetter, 1, "EW"},
    {kLongitude, Form::kRational, 3},
    {kAltitudeRef, Form::kByte},
    {kAltitude, Form::kRational},
    {0x07, Form::kRational, 3},       // GPSTimeStamp
    {0x08, Form::kText},              // GPSSatellites
    {0x09, Form::kLetter, 1, "AV"},   // GPSStatus
    {0x0A, Form::kLetter, 1, "23"},   // GPSMeasureMode
    {0x0B, Form::kRational},          // GPSDOP
    {0x0C, Form::kLetter, 1, "KMN"},  // GPSSpeedRef
    {0x0D, Form::kRational},          // GPSSpeed
    {0x0E, Form::kLetter, 1, "TM"},   // GPSTrackRef
    {0x0F, Form::kRational},          // GPSTrack
    {0x10, Form::kLetter, 1, "TM"},   // GPSImgDirectionRef
    {0x11, Form::kRational},          // GPSImgDirection
    {0x12, Form::kText},              // GPSMapDatum
    {0x13, Form::kLetter, 1, "NS"},   // GPSDestLatitudeRef
    {0x14, Form::kRational, 3},       // GPSDestLatitude
    {0x15, Form::kLetter, 1, "EW"},   // GPSDestLongitudeRef
    {0x16, Form::kRational, 3},       // GPSDestLongitude
    {0x17, Form::kLetter, 1, "TM"},   // GPSDestBearingRef
    {0x18, Form::kRational},          // GPSDestBearing
    {0x19, Form::kLetter, 1, "KMN"},  // GPSDestDistanceRef
    {0x1A, Form::kRational},          // GPSDestDistance
    {0x1B, Form::kUndefined, 0},      // GPSProcessingMethod
    {0x1C, Form::kUndefined, 0},      // GPSAreaInformation
    {0x1D, Form::kDay},               // GPSDateStamp
    {0x1E, Form::kShort},             // GPSDifferential
    {0x1F, Form::kRational},          // GPSHPositioningError
};

bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

bool is_day(const std::string& text) {
    return text.size() == 10 && parse_capture_time(text + " 00:00:00") && text[4] == ':';
}

bool is_offset(const std::string& text) {
    return text.size() == 6 && parse_capture_time("2026:01:01 00:00:00" + text);
}

bool is_date(const std::string& text) {
    return text.size() == 19 && is_day(text.substr(0, 10)) && parse_capture_time(text);
}

bool is_plain_text(const std::string& text) {
    return !text.empty() && text.size() <= kMostText &&
           std::none_of(text.begin(), text.end(), [](uint8_t byte) { return byte < ' ' || byte == 0x7F; });
}

bool is_well_formed(const KnownTag& known, const std::string& text) {
    switch (known.form) {
        case Form::kDate:
            return is_date(text);
        case Form::kDay:
            return is_day(text);
        case Form::kOffset:
            return is_offset(text);
        case Form::kDecimals:
            return text.size() <= 9 && std::all_of(text.begin(), text.end(), is_digit);
        case Form::kLetter:
            return text.size() == 1 && std::strchr(known.letters, text[0]);
        default:
            return true;
    }
}

std::optional<TiffValue> text_value(const TiffReader& block, const KnownTag& known, const TiffEntry& entry) {
    if (entry.type != TiffType::kAscii) {
        return std::nullopt;
    }
    std::string text = block.bytes(entry.at, std::min<size_t>(entry.count, kMostText + 1));
    text.resize(std::min(text.find('\0'), text.size()));
    text.erase(text.find_last_not_of(' ') + 1);
    if (!is_plain_text(text) || !is_well_formed(known, text)) {
        return std::nullopt;
    }
    return tiff_text(text);
}

std::optional<TiffValue> undefined_value(const TiffReader& block, const KnownTag& known, const TiffEntry& entry) {
    const bool fits = known.count == 0 ? entry.count <= kMostText : entry.count == known.count;
    if (entry.type != TiffType::kUndefined || !fits) {
        return std::nullopt;
    }
    return tiff_undefined(block.bytes(entry.at, entry.count));
}

bool is_signed(TiffType type) {
    return type == TiffType::kSshort || type == TiffType::kSlong || type == TiffType::kSrational;
}

// The number at a place, sign and all.
int64_t whole_number(const TiffReader& block, size_t at, uint32_t size, bool with_sign) {
    const uint32_t number = block.number(at, size);
    if (!with_sign) {
        return number;
    }
    return size == 2 ? static_cast<int16_t>(number) : static_cast<int32_t>(number);
}

// Whole numbers of any type that can hold them, where they fit the standard's.
std::optional<TiffValue> integer_value(const TiffReader& block, TiffType type, const KnownTag& known,
                                       const TiffEntry& entry) {
    const bool is_integer = entry.type == TiffType::kByte || entry.type == TiffType::kShort ||
                            entry.type == TiffType::kLong || entry.type == TiffType::kSshort ||
                            entry.type == TiffType::kSlong;
    // More than the standard's count is seen of sensitivities: the first one is it.
    if (!is_integer || entry.count < known.count) {
        return std::nullopt;
    }
    const uint32_t size = tiff_type_size(entry.type);
    const uint32_t new_size = tiff_type_size(type);
    TiffValue value = {type, ""};
    for (uint32_t i = 0; i < known.count; ++i) {
        const int64_t number = whole_number(block, entry.at + size_t{size} * i, size, is_signed(entry.type));
        if (number < 0 || number >> 8 * new_size != 0) {
            return std::nullopt;
        }
        value.bytes += to_big_endian(static_cast<uint64_t>(number), new_size);
    }
    return value;
}

std::optional<TiffValue> rational_value(const TiffReader& block, const KnownTag& known, const TiffEntry& entry) {
    const bool is_rational = entry.type == TiffType::kRational || entry.type == TiffType::kSrational;
    if (!is_rational || entry.count != known.count) {
        return std::nullopt;
    }
    const bool wants_sign = known.form == Form::kSrational;
    TiffValue value = {wants_sign ? TiffType::kSrational : TiffType::kRational, ""};
    for (uint32_t i = 0; i < 2 * known.count; ++i) {
        const int64_t number = whole_number(block, entry.at + size_t{4} * i, 4, is_signed(entry.type));
        const bool is_denominator = i % 2 == 1;
        const bool fits = wants_sign ? number <= INT32_MAX : number >= 0;
        if (!fits || (is_denominator && number == 0 && known.form != Form::kAnyRational)) {
            return std::nullopt;
        }
        value.bytes += to_big_endian(static_cast<uint64_t>(number), 4);
    }
    return value;
}

std::optional<TiffValue> value_of(const TiffReader& block, const KnownTag& known, const TiffEntry& entry) {
    switch (known.form) {
        case Form::kByte:
            return integer_value(block, TiffType::kByte, known, entry);
        case Form::kShort:
            return integer_value(block, TiffType::kShort, known, entry);
        case Form::kLong:
            return integer_value(block, TiffType::kLong, known, entry);
        case Form::kRational:
        case Form::kSrational:
        case Form::kAnyRational:
            return rational_value(block, known, entry);
        case Form::kUndefined:
            return undefined_value(block, known, entry);
        default:
            return text_value(block, known, entry);
    }
}

template <size_t Count>
TiffDirectory known_values(const TiffReader& block, const KnownTag (&tags)[Count], const TiffEntries& entries) {
    TiffDirectory directory;
    for (const KnownTag& known : tags) {
        const auto entry = entries.find(known.tag);
        if (entry == entries.end()) {
            continue;
        }
        if (const std::optional<TiffValue> value = value_of(block, known, entry->second)) {
            directory.emplace(known.tag, *value);
        }
    }
    return directory;
}

}  // namespace

TiffDirectory image_values(const TiffReader& block, const TiffEntries& entries) {
    return known_values(block, kImageTags, entries);
}

TiffDirectory photo_values(const TiffReader& block, const TiffEntries& entries) {
    return known_values(block, kPhotoTags, entries);
}

TiffDirectory place_values(const TiffReader& block, const TiffEntries& entries) {
    return known_values(block, kPlaceTags, entries);
}
