package com.talvane.orvex.comm.access;

/** A call on the bus that a flight recorder gets when it is over. */
@FunctionalInterface
interface Flight {
    /** Of a call that nobody records. */
    Flight NONE = (outcome, code, number, another) -> {
    };

    /**
     * Ends the record of the call.
     *
     * @param outcome OK, or the name of a code
     * @param code    0, or the number of the code
     * @param number  of a transfer the bytes that moved, of the update of a list the devices that came; 0 for others
     * @param another of the update of a list the devices that left; 0 for others
     */
    void end(String outcome, int code, int number, int another);
}
