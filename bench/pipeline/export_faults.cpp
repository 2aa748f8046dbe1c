// The memory a whole 1:1 export of a true-colour photograph takes fresh from
// the system, counted as page faults in a process that does nothing else:
// the picture is read and laid out first, and only the faults of the export
// itself (device start to stop) are counted. Freed memory is reused within a
// process, so each measurement needs a process of its own.
//
//   export_faults [SCALE]   SCALE 1 (default) for the photograph, 2 for a
//                           picture twice as wide and high (4K from 1080p)
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>

#include <string>

#include "raster/photo.h"
#include "test_host.h"

using namespace test_host;

namespace {

long minor_faults() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// The photograph enlarged `scale` times by repeating pixels.
Picture load(int scale) {
    const RgbPixels photo = read_jpeg_rgb(TOLVA_TEST_DATA_DIR "/photo.jpg");
    const int w = photo.width, h = photo.height;
    if (w == 0) {
        fprintf(stderr, "export_faults: cannot read %s/photo.jpg\n", TOLVA_TEST_DATA_DIR);
        exit(1);
    }
    Picture q;
    q.width = w * scale;
    q.height = h * scale;
    q.bits = 24;
    q.stride = (q.width * 3 + 3) & ~3;
    q.rows.assign(static_cast<size_t>(q.stride) * q.height, 0);
    for (int y = 0; y < q.height; ++y) {
        uint8_t *row = &q.rows[static_cast<size_t>(y) * q.stride];
        const uint8_t *from = photo.rgb.data() + static_cast<size_t>(y / scale) * w * 3;
        for (int x = 0; x < q.width; ++x) memcpy(row + 3 * x, from + 3 * (x / scale), 3);
    }
    return q;
}

}  // namespace

int main(int argc, char **argv) {
    int scale = argc > 1 ? atoi(argv[1]) : 1;
    if (scale < 1 || scale > 4) {
        fprintf(stderr, "usage: export_faults [1-4]\n");
        return 2;
    }
    Picture p = load(scale);
    TempDir dir;
    const std::string path = dir.path("faults.gif");
    long before = minor_faults();
    {
        Device device;
        device.start(path);
        Send how;
        how.oneToOne = true;
        send_picture(device, p, how);
        device.stop();
    }
    long faults = minor_faults() - before;
    double picture = 3.0 * p.width * p.height;
    printf("%dx%d: %ld page faults, %.1f MB, %.2f times the 24-bit picture\n", p.width, p.height,
           faults, faults * 4096.0 / 1e6, faults * 4096.0 / picture);
    return 0;
}
