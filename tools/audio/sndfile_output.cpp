#include "tools/audio/sndfile_output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tools/audio/sample_conversion.h"
#include "tools/files/write_all.h"

namespace korvane::tool {

namespace {

Output& output_of(void* data) { return *static_cast<Output*>(data); }

/** What a call gave, its error kept. */
sf_count_t kept(Output& output, sf_count_t result) {
    if (result < 0 && output.error == 0) {
        output.error = errno;
    }
    return result;
}

sf_count_t write_output(const void* bytes, sf_count_t count, void* data) {
    Output& output = output_of(data);
    if (output.error == 0) {
        const auto size = static_cast<std::size_t>(count);
        kept(output,
             write_all(output.descriptor, {static_cast<const char*>(bytes), size}) ? 0 : -1);
    }
    return output.error == 0 ? count : 0;
}

SF_VIRTUAL_IO output_calls() {
    SF_VIRTUAL_IO calls{};
    calls.get_filelen = [](void* data) -> sf_count_t {
        struct stat status {};
        kept(output_of(data), fstat(output_of(data).descriptor, &status));
        return status.st_size;
    };
    calls.seek = [](sf_count_t offset, int whence, void* data) -> sf_count_t {
        return kept(output_of(data), lseek(output_of(data).descriptor, offset, whence));
    };
    calls.tell = [](void* data) -> sf_count_t {
        return kept(output_of(data), lseek(output_of(data).descriptor, 0, SEEK_CUR));
    };
    calls.read = [](void* bytes, sf_count_t count, void* data) -> sf_count_t {
        return read(output_of(data).descriptor, bytes, static_cast<std::size_t>(count));
    };
    calls.write = write_output;
    return calls;
}

}  // namespace

SndfileHandle open_for_writing(Output& output, int format, int rate, int channels) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SndfileHandle file;
    if (sf_format_check(&info) != 0) {
        SF_VIRTUAL_IO calls = output_calls();
        file.reset(sf_open_virtual(&calls, SFM_WRITE, &info, &output));
    }
    if (file) {
        sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);  // what is beyond full scale
        sf_command(file.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr,
                   SF_FALSE);  // it holds the time of day
    }
    return file;
}

bool reads_back_as(int descriptor, int format, int rate, int channels, int64_t length) {
    SF_INFO info{};
    if (lseek(descriptor, 0, SEEK_SET) != 0) {
        return false;
    }
    const SndfileHandle file(sf_open_fd(descriptor, SFM_READ, &info, SF_FALSE));
    return file != nullptr && container_of(info.format) == container_of(format) &&
           info.samplerate == rate && info.channels == channels && info.frames == length;
}

sf_count_t write_samples(SNDFILE* file, int format, const std::vector<int16_t>& samples) {
    const auto count = static_cast<sf_count_t>(samples.size());
    if (sample_kind(format) != SampleKind::kReal) {
        return sf_write_short(file, samples.data(), count);
    }
    std::vector<double> real(samples.size());
    std::transform(samples.begin(), samples.end(), real.begin(),
                   [](int16_t sample) { return sample / 32768.0; });
    return sf_write_double(file, real.data(), count);
}

}  // namespace korvane::tool
