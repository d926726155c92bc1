"""What a program in another language gets: python_client.py FOLDER, with the daemon's environment."""
import sys
import threading

sys.path.insert(0, sys.argv[2])
import vintakd

folder = sys.argv[1]


def status_of(call):
    try:
        call()
    except vintakd.Error as error:
        assert str(error), error.status
        return error.status
    return vintakd.OK


with vintakd.Client() as client:
    client.ping()
    assert client.convert(folder + "/a.dcm", folder + "/py") == []
    assert client.convert(folder + "/short.dcm", folder + "/short")[0].startswith("2 of 4 frames were converted")
    assert client.query(folder + "/a.dcm", [0x00080060, 0x00280008, 0x00104000]) == [b"CT", b"2", b"a;b"]
    text, character_set = client.dump(folder + "/a.dcm")
    assert text.startswith(b"(0008,0005) CS ISO_IR 100\n") and character_set == "ISO_IR 100"
    assert status_of(lambda: client.convert(folder + "/none.dcm", folder + "/other")) == vintakd.FILE
    assert status_of(lambda: client.convert(folder + "/bad.dcm", folder + "/other")) == vintakd.OBJECT
    assert status_of(lambda: client.convert(folder + "/a.dcm", folder + "/no/py")) == vintakd.OUTPUT
    assert status_of(lambda: client.convert("x" * 2000, folder + "/other")) == vintakd.REQUEST
    assert status_of(lambda: client.convert(None, folder + "/other")) == 1
    statuses = []
    threads = [threading.Thread(target=lambda: statuses.append(status_of(
        lambda: client.query(folder + "/a.dcm", [0x00280010])))) for _ in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert statuses == [vintakd.OK] * 8
assert status_of(lambda: vintakd.Client("vintakd_e2e_nobody")) == vintakd.NO_DAEMON
print("done")
