; Reset vector and start-up code.
        psect   reset_vec
reset:  goto    start

        psect   init
start:  clrf    _blinks
        call    _main
        goto    start
