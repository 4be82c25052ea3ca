/* The two lamps. */
enum led_colour { LED_RED, LED_GREEN };

struct led {
    unsigned char port;
    unsigned char pin : 3;
    unsigned char on : 1;
};

extern struct led leds[2];
void led_init(void);
void led_toggle(enum led_colour which);
