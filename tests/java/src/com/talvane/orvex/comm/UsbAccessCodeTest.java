package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Optional;
import org.junit.jupiter.api.Test;

class UsbAccessCodeTest {
    @Test
    void theCodesAreLibusbsAndTheLibrarysOwn() {
        List<Integer> codes = Arrays.stream(UsbAccessCode.values()).map(UsbAccessCode::code).toList();
        assertEquals(
                List.of(-1, -2, -3, -4, -5, -6, -7, -8, -9, -10, -11, -12, -99),
                codes.stream().filter(code -> code > -100).toList());
        // house.pages compares the library's own codes with its header; here they only have to be in order, each once.
        assertEquals(codes.stream().distinct().sorted(Comparator.reverseOrder()).toList(), codes);
        for (UsbAccessCode code : UsbAccessCode.values()) {
            assertEquals(code.code() > -100, code.isFromLibusb());
            assertFalse(code.text().isBlank());
        }
    }

    @Test
    void resultsAreDescribed() {
        assertEquals(Optional.of(UsbAccessCode.TIMED_OUT), UsbAccessCode.of(-150));
        assertEquals(Optional.empty(), UsbAccessCode.of(0));
        assertEquals("-150: the transfer timed out", UsbAccessCode.describe(-150));
        assertEquals("12", UsbAccessCode.describe(12));
        assertEquals("-98", UsbAccessCode.describe(-98));
    }
}
