/* Prints the library's version and, given a calibration container and a
 * frame size, whether the stereo view engine accepts them:
 *   kvdsr_ndk_example [calibration.bin width height]
 * On Android the same lines also go to logcat (tag kvdsr). */
#include <stdio.h>
#include <stdlib.h>

#include <kvDSR.h>

#ifdef __ANDROID__
#include <android/log.h>
#define SAY(...) (printf(__VA_ARGS__), __android_log_print(ANDROID_LOG_INFO, "kvdsr", __VA_ARGS__))
#else
#define SAY(...) printf(__VA_ARGS__)
#endif

static unsigned char* readFile(const char* path, long* size) {
    unsigned char* data = NULL;
    FILE* f = fopen(path, "rb");
    if (!f) return NULL;
    if (fseek(f, 0, SEEK_END) == 0 && (*size = ftell(f)) > 0 && fseek(f, 0, SEEK_SET) == 0) {
        data = (unsigned char*)malloc((size_t)*size);
        if (data && fread(data, 1, (size_t)*size, f) != (size_t)*size) {
            free(data);
            data = NULL;
        }
    }
    fclose(f);
    return data;
}

int main(int argc, char** argv) {
    char version[256];
    uint32_t rc = kvDSR_VersionInfo_Get(version, (int32_t)sizeof version);
    if (rc != kvDSR_OK) {
        SAY("kvDSR_VersionInfo_Get: %s\n", kvDSR_StatusName(rc));
        return 1;
    }
    SAY("libkvDSR %s (header %s)\n", version, KVDSR_VERSION_STRING);
    if (argc == 4) {
        long size = 0;
        unsigned char* calib = readFile(argv[1], &size);
        if (!calib) {
            SAY("%s: cannot read\n", argv[1]);
            return 1;
        }
        rc = kvDSR_StereoView_Init(calib, (uint32_t)size, NULL, 0, (uint16_t)atoi(argv[2]), (uint16_t)atoi(argv[3]));
        SAY("kvDSR_StereoView_Init: %s\n", kvDSR_StatusName(rc));
        kvDSR_StereoView_Close();
        free(calib);
        return rc == kvDSR_OK ? 0 : 1;
    }
    return 0;
}
