// make_sample: writes the sample messages of data/samples, a small earthquake as four stations
// would have recorded it. Everything is computed from a fixed seed by additions and multiplications
// alone, so that every machine writes the same bytes.
//
//     make_sample FOLDER
//
// synthetic.gse2       a mail with twelve CM6 sections and one in the INT format
// synthetic_crlf.gse2  three CM6 sections with carriage returns and padded last lines
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "morva.h"

namespace {

constexpr int kRate = 100;      // samples a second
constexpr int kSeconds = 70;    // length of each trace
constexpr double kOrigin = 12;  // seconds from the start of the traces to the event
constexpr double kSpeedP = 6.0, kSpeedS = 3.46;  // km/s

struct Station {
    const char* name;
    double latitude, longitude, elevation;
    double distance;  // km from the event
    double noise;     // counts
    double offset;    // counts
};
constexpr Station kStations[] = {
    {"ALDA", 46.10320, 8.21450, 1.120, 24, 90, -1830},
    {"BREK", 46.31877, 8.60912, 0.415, 51, 260, 2310},
    {"CORN", 45.88203, 9.01120, 0.230, 83, 410, 655},
    {"DUNE", 46.75541, 9.25008, 1.874, 121, 60, -12},
};

struct Channel {
    const char* name;
    double p, s;          // share of each wave on this channel
    double azimuth, dip;  // degrees, as WID2 lines give them
};
constexpr Channel kChannels[] = {
    {"HHZ", 1.0, 0.45, -1.0, 0.0}, {"HHN", 0.5, 1.0, 0.0, 90.0}, {"HHE", 0.4, 0.85, 90.0, 90.0}};

class Random {
  public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    // About normal, with a mean of 0 and a deviation of 1: the sum of twelve even numbers.
    double normal() {
        double sum = -6;
        for (int i = 0; i < 12; ++i) sum += even();
        return sum;
    }

  private:
    double even() {
        state_ += 0x9e3779b97f4a7c15u;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
        return static_cast<double>((z ^ (z >> 31)) >> 11) * 0x1p-53;
    }
    std::uint64_t state_;
};

// A damped oscillator: what a wave's frequency makes of the noise that drives it.
class Oscillator {
  public:
    // `cosine` of the angle that the wave turns in one sample, `damping` of its amplitude in one.
    Oscillator(double cosine, double damping)
        : first_(2 * damping * cosine), second_(-damping * damping) {}
    double next(double drive) {
        const double now = first_ * last_ + second_ * before_ + drive;
        before_ = last_;
        return last_ = now;
    }

  private:
    double first_, second_;
    double last_ = 0, before_ = 0;
};

// A wave that begins at a sample, rises within a third of a second and dies away.
class Wave {
  public:
    Wave(Oscillator oscillator, double arrival, double amplitude, double decay)
        : oscillator_(oscillator),
          arrival_(static_cast<int>(arrival * kRate)),
          amplitude_(amplitude),
          decay_(decay) {}
    double next(int i, Random& random) {
        if (i < arrival_) return 0;
        rise_ += (1 - rise_) * 0.1;
        fall_ *= decay_;
        return oscillator_.next(random.normal() * amplitude_ * rise_ * fall_);
    }

  private:
    Oscillator oscillator_;
    int arrival_;
    double amplitude_, decay_;
    double rise_ = 0, fall_ = 1;
};

using Samples = std::vector<std::int32_t>;

Samples trace(const Station& station, const Channel& channel, std::uint64_t seed) {
    Random random(seed);
    Oscillator swell(0.99987663, 0.997);  // the sea's quarter of a hertz
    const double strength = 9.0e5 / station.distance;
    Wave p(Oscillator(0.90482705, 0.95), kOrigin + station.distance / kSpeedP,
           strength * channel.p * 0.05, 0.9955);
    Wave s(Oscillator(0.98228725, 0.97), kOrigin + station.distance / kSpeedS,
           strength * channel.s * 0.09, 0.9978);
    Samples samples;
    for (int i = 0; i < kRate * kSeconds; ++i) {
        const double ground = station.offset + station.noise * 0.1 * random.normal() +
                              station.noise * 0.002 * swell.next(random.normal() * 10) +
                              p.next(i, random) + s.next(i, random);
        samples.push_back(static_cast<std::int32_t>(ground < 0 ? ground - 0.5 : ground + 0.5));
    }
    return samples;
}

Samples every(const Samples& samples, std::size_t step) {
    Samples fewer;
    for (std::size_t i = 0; i < samples.size(); i += step) fewer.push_back(samples[i]);
    return fewer;
}

// The two header lines of a section and the line that begins its data.
std::string header(const Station& station, const Channel& channel, const char* name,
                   const char* format, std::size_t count, double rate) {
    char text[256];
    std::snprintf(text, sizeof text,
                  "WID2 2026/03/14 04:21:%06.3f %-5s %-3s %-4s %-3s %8zu %11.6f %10.2e %7.3f %-6s "
                  "%5.1f %4.1f\nSTA2 %-9s %9.5f %10.5f %-12s %5.3f %5.3f\nDAT2\n",
                  7.35, station.name, name, "", format, count, rate, 0.0625, 1.0, "STS-2",
                  channel.azimuth, channel.dip, "SYNTH", station.latitude, station.longitude,
                  "WGS-84", station.elevation, 0.0);
    return text;
}

std::string cm6_section(const Station& station, const Channel& channel, const Samples& samples,
                        double rate) {
    char* text = nullptr;
    int nbytes = 0, size = 0;
    if (cm6(samples.data(), static_cast<int>(samples.size()), &text, &nbytes, &size) != 0)
        elog_die(0, "can't encode %s %s\n", station.name, channel.name);
    std::string section = header(station, channel, channel.name, "CM6", samples.size(), rate);
    section.append(text, static_cast<std::size_t>(nbytes));
    std::free(text);
    return section;
}

// Samples as decimal numbers, ten in a line.
std::string int_section(const Station& station, const Channel& channel, const char* name,
                        const Samples& samples, double rate) {
    std::string section = header(station, channel, name, "INT", samples.size(), rate);
    for (std::size_t i = 0; i < samples.size(); ++i)
        section +=
            std::to_string(samples[i]) + (i % 10 == 9 || i + 1 == samples.size() ? "\n" : " ");
    std::int32_t checksum = 0;
    gse_checksum(samples.data(), static_cast<int>(samples.size()), &checksum);
    return section + "CHK2 " + std::to_string(checksum) + "\n";
}

std::string mail(const std::string& waveforms) {
    return "From: autodrm@synth.example\n"
           "To: analyst@synth.example\n"
           "Date: Sat, 14 Mar 2026 04:30:00 +0000\n"
           "Subject: waveforms of a synthetic event\n"
           "\n"
           "BEGIN GSE2.0\n"
           "MSG_TYPE DATA\n"
           "MSG_ID SYNTH_0001 MORVA\n"
           "DATA_TYPE WAVEFORM GSE2.0\n" +
           waveforms + "STOP\n";
}

std::string padded_with_blanks(const std::string& section) {
    const std::size_t end = section.rfind("\nCHK2 ");
    const std::size_t length = end - section.rfind('\n', end - 1) - 1;
    return section.substr(0, end) + std::string(80 - length, ' ') + section.substr(end);
}

std::string with_carriage_returns(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') result += '\r';
        result += c;
    }
    return result;
}

void write_file(const std::string& path, const std::string& text) {
    FILE* stream = std::fopen(path.c_str(), "wb");
    if (stream == nullptr) elog_die(1, "can't open '%s' to write\n", path.c_str());
    const bool written = std::fwrite(text.data(), 1, text.size(), stream) == text.size();
    if (std::fclose(stream) != 0 || !written) elog_die(1, "can't write '%s'\n", path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    elog_init(argc, argv);
    if (argc != 2) elog_die(0, "usage: %s FOLDER\n", Program_Name);
    std::string waveforms, slow;
    std::uint64_t seed = 20260314;
    for (const Station& station : kStations) {
        for (const Channel& channel : kChannels) {
            const Samples samples = trace(station, channel, ++seed);
            waveforms += cm6_section(station, channel, samples, kRate);
            if (&station == kStations)
                slow +=
                    padded_with_blanks(cm6_section(station, channel, every(samples, 5), kRate / 5));
            if (&station == kStations && &channel == kChannels)
                waveforms += int_section(station, channel, "LHZ", every(samples, kRate), 1);
        }
    }
    const std::string folder = argv[1];
    write_file(folder + "/synthetic.gse2", mail(waveforms));
    write_file(folder + "/synthetic_crlf.gse2", with_carriage_returns(slow));
    return 0;
}
