#!/usr/bin/env python3
"""A host as others write it in Python: pyusb looks at the camera, asks it for this and that, and
reads pictures and sound. It ends with an AssertionError where something is not as it should be."""

import errno
import time

import usb.core
import usb.util

VENDOR, PRODUCT = 0x114D, 0x2066
VIDEO, SOUND = 0x81, 0x82
TO_INTERFACE, FROM_INTERFACE = 0x21, 0xA1
SET_CUR, GET_CUR, GET_INFO = 0x01, 0x81, 0x86
BRIGHTNESS = 0x0200, 0x0300  # wValue, wIndex: selector 2 of unit 3
PROBE, COMMIT, STREAMING = 0x0100, 0x0200, 1
YUY2, PROBE_BYTES, PICTURE_BYTES = 1, 34, 640 * 480 * 2
PAYLOAD_ROOM = 16384
END_OF_FRAME = 0x02


def expect_stall(call, *arguments):
    try:
        call(*arguments)
    except usb.core.USBError as error:
        assert error.errno == errno.EPIPE, error
    else:
        raise AssertionError("it did not stall")


def look_at_descriptors(camera):
    assert camera.bNumConfigurations == 1
    assert usb.util.get_string(camera, camera.iProduct), "no product text"
    configuration = camera.get_active_configuration()
    interfaces = {(each.bInterfaceNumber, each.bAlternateSetting): each for each in configuration}
    streaming = interfaces[STREAMING, 0]
    assert (streaming.bInterfaceClass, streaming.bInterfaceSubClass) == (0x0E, 0x02)
    (endpoint,) = streaming.endpoints()
    assert (endpoint.bEndpointAddress, endpoint.bmAttributes, endpoint.wMaxPacketSize) == (
        VIDEO, 2, 512)
    sound = [each for each in configuration.interfaces()
             for endpoint in each.endpoints() if endpoint.bEndpointAddress == SOUND]
    assert sound, "no endpoint for sound"
    return sound[0]


def try_requests(camera):
    def ask(request, length=2, value=BRIGHTNESS[0]):
        return bytes(camera.ctrl_transfer(FROM_INTERFACE, request, value, BRIGHTNESS[1], length))

    assert ask(GET_INFO, 1)[0] & 3 == 3
    before = ask(GET_CUR)
    assert ask(GET_CUR, 16) == before, "a longer request is answered short"
    assert camera.ctrl_transfer(TO_INTERFACE, SET_CUR, *BRIGHTNESS, b"\x20\x00") == 2
    assert ask(GET_CUR) == b"\x20\x00"
    camera.ctrl_transfer(TO_INTERFACE, SET_CUR, *BRIGHTNESS, before)
    expect_stall(ask, GET_CUR, 2, 0x7F00)
    error_code = camera.ctrl_transfer(FROM_INTERFACE, GET_CUR, 0x0200, 0x0000, 1)
    assert error_code[0] == 6, "invalid control"
    assert ask(GET_CUR) == before, "the next request works"


def start_pictures(camera):
    wish = bytearray(PROBE_BYTES)
    wish[0], wish[2], wish[3] = 1, YUY2, 1
    wish[4:8] = (333333).to_bytes(4, "little")
    camera.ctrl_transfer(TO_INTERFACE, SET_CUR, PROBE, STREAMING, wish)
    offer = camera.ctrl_transfer(FROM_INTERFACE, GET_CUR, PROBE, STREAMING, PROBE_BYTES)
    assert int.from_bytes(offer[18:22], "little") == PICTURE_BYTES
    camera.ctrl_transfer(TO_INTERFACE, SET_CUR, COMMIT, STREAMING, offer)


def read_picture(camera):
    """Sizes of the data up to an end of frame, all together."""
    size = 0
    while True:
        payload = camera.read(VIDEO, PAYLOAD_ROOM, 5000)
        assert payload[0] == 12, "header of a payload"
        size += len(payload) - payload[0]
        if payload[1] & END_OF_FRAME:
            return size


def try_pictures(camera):
    start_pictures(camera)
    read_picture(camera)  # which may have begun before
    for _ in range(10):
        size = read_picture(camera)
        assert size == PICTURE_BYTES, size


def try_halt(camera):
    camera.ctrl_transfer(0x02, 0x03, 0, VIDEO)  # SET_FEATURE(ENDPOINT_HALT)
    for _ in range(2):
        expect_stall(camera.read, VIDEO, PAYLOAD_ROOM, 1000)
        assert camera.ctrl_transfer(0x82, 0x00, 0, VIDEO, 2)[0] == 1, "GET_STATUS says halted"
    camera.clear_halt(VIDEO)
    assert camera.ctrl_transfer(0x82, 0x00, 0, VIDEO, 2)[0] == 0
    try_pictures(camera)


def try_sound(camera, interface):
    usb.util.claim_interface(camera, interface.bInterfaceNumber)
    camera.set_interface_altsetting(interface)
    deadline = time.monotonic() + 20
    got = 0
    while got < 16000 and time.monotonic() < deadline:
        got += len(camera.read(SOUND, interface[0].wMaxPacketSize * 16, 2000))
    assert got >= 16000, f"{got} bytes of sound"
    camera.set_interface_altsetting(interface.bInterfaceNumber, 0)
    usb.util.release_interface(camera, interface.bInterfaceNumber)


def main():
    assert len(list(usb.core.find(find_all=True))) == 2, "the root hub and the camera"
    camera = usb.core.find(idVendor=VENDOR, idProduct=PRODUCT)
    assert camera is not None, "no camera"
    sound = look_at_descriptors(camera)
    try_requests(camera)
    usb.util.claim_interface(camera, STREAMING)
    try_pictures(camera)
    try_halt(camera)
    usb.util.release_interface(camera, STREAMING)
    try_sound(camera, sound)
    camera.reset()
    usb.util.dispose_resources(camera)
    print(f"pyusb {usb.__version__}")


if __name__ == "__main__":
    main()
