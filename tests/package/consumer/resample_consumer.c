/* A user program that calls libresample while naming only libku: it includes
 * <ku.h> alone and links through ku.pc or the ku CMake package. */
#include <stdio.h>

#include <ku.h>

/* libresample publishes no prototypes for its lrs* helpers: an application
 * declares the ones it calls. lrsLpFilter is called; the others are only
 * referenced, which is enough to make the link resolve them. */
void lrsLpFilter(double c[], int N, double frq, double Beta, int Num);
int lrsSrcUp(void);
int lrsSrcUD(void);
float lrsFilterUp(void);
float lrsFilterUD(void);

static int check_resample(void)
{
    float in[1000];
    float out[2100];
    int used = 0;
    int written;
    int width;
    int i;
    void *handle = resample_open(1, 0.5, 2.0);
    void *copy;
    if (handle == NULL) {
        return 1;
    }
    width = resample_get_filter_width(handle);
    copy = resample_dup(handle);
    for (i = 0; i < 1000; i++) {
        in[i] = (float)(i % 40 - 20) / 20.0f;
    }
    written = resample_process(handle, 2.0, in, 1000, 1, &used, out, 2100);
    resample_close(copy);
    resample_close(handle);
    return width > 0 && copy != NULL && used == 1000 && written > 1000 ? 0 : 1;
}

static int check_lrs(void)
{
    double filter[16];
    int (*volatile referenced[4])(void);
    referenced[0] = lrsSrcUp;
    referenced[1] = lrsSrcUD;
    referenced[2] = (int (*)(void))(void (*)(void))lrsFilterUp;
    referenced[3] = (int (*)(void))(void (*)(void))lrsFilterUD;
    /* The ideal low-pass response at 0 is twice the cut-off frequency. */
    lrsLpFilter(filter, 16, 0.25, 6.0, 4);
    return referenced[3] != NULL && filter[0] == 0.5 ? 0 : 1;
}

int main(void)
{
    if (check_resample() != 0 || check_lrs() != 0) {
        return 1;
    }
    printf("ku consumer ok (resample)\n");
    return 0;
}
