package com.talvane.orvex.comm.access;

import jdk.jfr.Category;
import jdk.jfr.Description;
import jdk.jfr.Event;
import jdk.jfr.Label;
import jdk.jfr.StackTrace;

/** What the events of all calls have in common. */
@Category("USB")
@StackTrace(false)
abstract class UsbEvent extends Event implements Flight {
    @Label("Outcome")
    @Description("OK, CLOSED when the device was closed meanwhile, or the name of a code")
    String outcome;

    @Label("Code")
    @Description("0, or the number of the code")
    int code;

    @Override
    public void end(String result, int number, int one, int another) {
        end();
        outcome = result;
        code = number;
        count(one, another);
        commit();
    }

    /** Takes the numbers that only this kind of call has. */
    void count(int one, int another) {
    }
}
