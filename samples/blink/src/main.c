#include "led.h"
#include "timer.h"

static unsigned char blinks;

int main(void)
{
    ticks_t pause;

    led_init();
    pause = timer_load();
    for (;;) {
        led_toggle(LED_GREEN);
        timer_wait(pause);
        blinks++;
    }
}
