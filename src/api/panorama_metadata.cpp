#include "api/panorama_metadata.h"

#include "base/text_owner.h"
#include "metadata/mov.h"
#include "metadata/spherical.h"

void write_metadata_of_movie(const char* path, ImageSize size, const std::string& datetime,
                             const std::optional<MovieTexts>& texts, bool index_in_front) {
    if (texts) {
        write_movie_metadata(path, size.width, size.height, *texts);
    } else {
        const TextPtr text(TALUMO360ViewerMetadata(false, size.width, size.height, datetime.c_str()));
        _mov file(path, true);
        file.wtire_xml_data(text.get());
        file.close_stream();
    }
    if (index_in_front) {
        move_index_to_front(path);
    }
}
