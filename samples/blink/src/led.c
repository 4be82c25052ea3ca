#include "led.h"

struct led leds[2];

void led_init(void)
{
    unsigned char i;

    for (i = 0; i < 2; i++) {
        leds[i].port = 5;
        leds[i].pin = i;
    }
}

void led_toggle(enum led_colour which)
{
    leds[which].on = !leds[which].on;
}
