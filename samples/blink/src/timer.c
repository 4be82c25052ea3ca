#include "timer.h"

#define DEFAULT_PAUSE 500

eeprom ticks_t saved_pause = DEFAULT_PAUSE;

ticks_t timer_load(void)
{
    ticks_t pause = saved_pause;
    return pause ? pause : DEFAULT_PAUSE;
}

void timer_wait(ticks_t pause)
{
    while (pause != 0) {
        unsigned char spin = 100;
        while (spin != 0) {
            spin--;
        }
        pause--;
    }
}
