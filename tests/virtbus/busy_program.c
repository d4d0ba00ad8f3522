/* Contexts that come and go on several threads. Exit code 1 when one cannot be made. */
#include <libusb-1.0/libusb.h>
#include <pthread.h>
#include <stddef.h>

enum { kThreads = 8, kTimes = 32 };

static void* come_and_go(void* failed) {
    for (int i = 0; i < kTimes; ++i) {
        libusb_context* context = NULL;
        if (libusb_init(&context) != 0) {
            *(int*)failed = 1;
            break;
        }
        libusb_exit(context);
    }
    return NULL;
}

int main(void) {
    pthread_t threads[kThreads];
    int failed[kThreads] = {0};
    for (int i = 0; i < kThreads; ++i) {
        if (pthread_create(&threads[i], NULL, come_and_go, &failed[i]) != 0) {
            return 1;
        }
    }
    int any = 0;
    for (int i = 0; i < kThreads; ++i) {
        pthread_join(threads[i], NULL);
        any |= failed[i];
    }
    return any;
}
