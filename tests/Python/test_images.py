"""Arrays in and out of images, lifetimes on both sides, properties and components."""

import ast
import gc
import inspect
import math
import os
import pathlib
import struct
import tempfile
import threading
import unittest

import kelvaris
import numpy as np


class ArrayTest(unittest.TestCase):
    def test_shapes_and_types_that_are_shared(self):
        types = {
            "int8": "int8", "uint8": "uint8", "int16": "int16", "uint16": "uint16", "int32": "int32",
            "uint32": "uint32", "float32": "float", "float64": "double",
        }  # fmt: skip
        for dtype, pixel_type in types.items():
            for shape, full in [((3, 4), (1, 3, 4, 1)), ((2, 3, 4), (2, 3, 4, 1)), ((2, 3, 4, 5), (2, 3, 4, 5))]:
                with self.subTest(dtype=dtype, shape=shape):
                    array = np.arange(math.prod(shape), dtype=dtype).reshape(shape)
                    image = kelvaris.SharedImage(array)
                    self.assertEqual((image.shape, image.pixel_type), (full, pixel_type))
                    view = image.array()
                    self.assertEqual(view.dtype, array.dtype)
                    np.testing.assert_array_equal(view, array.reshape(full))
                    self.assertTrue(np.shares_memory(view, array))
                    self.assertFalse(view.flags.writeable)
                    array.flat[-1] = 7
                    self.assertEqual(view.flat[-1], 7)

    def test_layouts_that_are_copied(self):
        base = np.arange(24, dtype="float32").reshape(4, 6)
        frozen = base.copy()
        frozen.flags.writeable = False
        raw = np.zeros(4 * 24 + 1, np.uint8)
        misaligned = raw[1:].view("float32").reshape(4, 6)
        misaligned[...] = base
        cases = {
            "transposed": base.T,
            "every second": base[:, ::2],
            "reversed": base[::-1],
            "other byte order": base.astype(">f4"),
            "read-only": frozen,
            "broadcast": np.broadcast_to(base[0], (4, 6)),
            "misaligned": misaligned,
        }
        for name, array in cases.items():
            with self.subTest(name):
                image = kelvaris.SharedImage(array)
                np.testing.assert_array_equal(image.array()[0, :, :, 0], array)
                self.assertFalse(np.shares_memory(image.array(), array))
        image = kelvaris.SharedImage(base, copy=True)
        self.assertFalse(np.shares_memory(image.array(), base))
        np.testing.assert_array_equal(kelvaris.SharedImage(memoryview(base)).array()[0, :, :, 0], base)

    def test_complex_and_half(self):
        iq = (np.arange(6) + 1j * np.arange(6, 12)).astype("complex64").reshape(2, 3)
        image = kelvaris.SharedImage(iq)
        self.assertEqual((image.shape, image.pixel_type), ((1, 2, 3, 2), "float"))
        np.testing.assert_array_equal(image.array().view("complex64")[0, :, :, 0], iq)
        self.assertTrue(np.shares_memory(image.array(), iq))
        self.assertEqual(kelvaris.SharedImage(iq[None, :, :, None]).shape, (1, 2, 3, 2))
        half = kelvaris.SharedImage(np.array([[0.5, -2.0]], "float16"))
        self.assertEqual((half.pixel_type, half.array().dtype), ("half", np.float32))
        np.testing.assert_array_equal(half.array().ravel(), [0.5, -2.0])
        self.assertEqual(kelvaris.SharedImage(np.ones((2, 2), "float32"), half=True).pixel_type, "half")

    def test_what_is_refused(self):
        image = kelvaris.SharedImage
        cases = [
            (TypeError, "int64.*expected int8", lambda: image([[1, 2], [3, 4]])),
            (TypeError, "complex128", lambda: image(np.zeros((2, 2), complex))),
            (TypeError, "half=True", lambda: image(np.zeros((2, 2), "int16"), half=True)),
            (ValueError, r"shape \(5,\).*expected \(height, width\)", lambda: image(np.zeros(5, "f4"))),
            (ValueError, r"shape \(3, 0\).*expected 1 to", lambda: image(np.zeros((3, 0), "f4"))),
            (ValueError, "one channel", lambda: image(np.zeros((1, 2, 3, 2), "complex64"))),
            (ValueError, "spacing", lambda: image(np.zeros((2, 2), "f4"), spacing=(1, 0, 1))),
            (ValueError, "spacing", lambda: image(np.zeros((2, 2), "f4"), spacing=(1, math.nan, 1))),
            (ValueError, r"expected \(2, 3\)", lambda: kelvaris.PointCloud([[1, 2], [3, 4]])),
            (ValueError, "1 weights for 2 points", lambda: kelvaris.PointCloud(np.zeros((2, 3)), weights=[1])),
            (ValueError, "modality", lambda: kelvaris.SharedImageSet(modality="x-ray")),
            (IndexError, "no image 1 in a set of 1", lambda: kelvaris.SharedImageSet([np.zeros((2, 2), "f4")])[1]),
        ]
        for kind, text, call in cases:
            with self.subTest(text=text), self.assertRaisesRegex(kind, text):
                call()

    def test_descriptions(self):
        image = kelvaris.SharedImage(
            np.array([[1.0, np.nan]], "f4"), spacing=(0.1, 0.2, 0.3), metric=False, shift=2, scale=4, mask_value=np.nan
        )
        self.assertEqual((image.spacing, image.metric, image.shift, image.scale), ((0.1, 0.2, 0.3), False, 2.0, 4.0))
        self.assertTrue(math.isnan(image.mask_value))
        self.assertEqual(image.valid().tolist(), [[[True, False]]])
        np.testing.assert_array_equal(image.matrix, np.eye(4))
        image.matrix = np.arange(16).reshape(4, 4)
        np.testing.assert_array_equal(image.matrix, np.arange(16).reshape(4, 4))
        with self.assertRaises(ValueError):
            image.matrix = np.eye(3)
        self.assertEqual(np.asarray(image).shape, (1, 1, 2, 1))
        self.assertEqual(np.asarray(image, dtype="float64").dtype, np.float64)
        view = image.array(writable=True)
        view[0, 0, 0, 0] = 5
        image.changed()
        self.assertEqual(image.array()[0, 0, 0, 0], 5)

    def test_point_clouds(self):
        points = np.arange(6.0).reshape(2, 3)
        cloud = kelvaris.PointCloud(points, weights=[0.5, 1], name="wires")
        self.assertEqual((len(cloud), cloud.name, cloud.kind), (2, "wires", "unknown"))
        np.testing.assert_array_equal(cloud.points, points)
        np.testing.assert_array_equal(cloud.weights, [0.5, 1])
        cloud.weights = None
        self.assertIsNone(cloud.weights)
        view = cloud.points
        del cloud
        gc.collect()
        np.testing.assert_array_equal(view, points)
        self.assertEqual(kelvaris.PointCloud(np.zeros((0, 3))).points.shape, (0, 3))


class LifetimeTest(unittest.TestCase):
    def test_memory_goes_with_the_last_of_both(self):
        source = bytearray(struct.pack("4f", 1, 2, 3, 4))  # can't be resized while a view of it lives
        view = np.frombuffer(source, "float32").reshape(2, 2)
        images = kelvaris.SharedImageSet([view])
        result = images[0].array()
        del view, images
        gc.collect()
        with self.assertRaises(BufferError):
            source.append(0)
        self.assertEqual(result.sum(), 10)
        del result
        gc.collect()
        source.append(0)

    def test_released_on_other_threads(self):
        source = bytearray(64)
        sets = [kelvaris.SharedImageSet([np.frombuffer(source, "float32").reshape(4, 4)])]

        def drop():
            sets.clear()

        thread = threading.Thread(target=drop)
        thread.start()
        thread.join()
        source.append(0)


class SetTest(unittest.TestCase):
    def test_images_and_parts(self):
        images = kelvaris.SharedImageSet(name="scan")
        self.assertEqual((len(images), images.kind, images.modality), (0, "unknown", "ultrasound"))
        for i in range(4):
            images.append(np.full((2, 3), i, "uint8"), timestamp=10.0 * i)
        self.assertEqual((images.kind, images.timestamps), ("images", [0.0, 10.0, 20.0, 30.0]))
        self.assertEqual([image.array().flat[0] for image in images], [0, 1, 2, 3])
        part = images[::-2]
        self.assertEqual(([i.array().flat[0] for i in part], part.timestamps), ([3, 1], [30.0, 10.0]))
        self.assertEqual(part.name, "scan")
        self.assertTrue(np.shares_memory(part[0].array(), images[3].array()))
        images.set_timestamp(-1, 35)
        self.assertEqual(images.timestamps[3], 35)
        images.volumetric = True
        self.assertEqual((images.kind, kelvaris.SharedImageSet([np.zeros((2, 2, 2), "f4")]).kind), ("volumes", "volume"))

    def test_properties_round_trip(self):
        values = {
            "none": None, "yes": True, "int": -3, "float": 0.1, "big": 6666666.666666667, "whole": 5e6,
            "text": "a b; c", "digits": "007", "almost": "1.0", "blank": " 1", "ints": [1, 2, 3], "floats": [0.5, 1e-7],
            "nan": math.nan, "points": [[-12.5, 10.0], [0.1, 35.0]], "numpy": np.arange(3), "scalar": np.float32(0.5),
            "child": {"x": 1}, "children": [{"y": 2}, {}, {"z": {"deep": "ß"}}],
        }  # fmt: skip
        images = kelvaris.SharedImageSet()
        images.properties = values
        read = images.properties
        self.assertEqual(read["none"], "")
        self.assertTrue(math.isnan(read["nan"]))
        self.assertEqual((read["numpy"], read["scalar"], read["child"]), ([0, 1, 2], 0.5, [{"x": 1}]))
        self.assertEqual(read["children"], [{"y": 2}, {}, {"z": [{"deep": "ß"}]}])
        for key in ["yes", "int", "float", "big", "whole", "text", "digits", "almost", "blank", "ints", "floats", "points"]:
            self.assertEqual((read[key], type(read[key])), (values[key], type(read[key])), key)
        self.assertIs(type(read["yes"]), bool)
        images.properties = read
        again = images.properties
        self.assertEqual(repr(again), repr(read))

    def test_properties_that_are_refused(self):
        for values, kind in [
            ({"x": object()}, TypeError), ({"x": [1, "a"]}, TypeError), ({"x": [[1], 2]}, TypeError),
            ({1: 2}, TypeError), ({"x": {"y": {3}}}, TypeError), ({"x": [{"a": 1}, 2]}, TypeError), ([1], TypeError),
        ]:  # fmt: skip
            images = kelvaris.SharedImageSet()
            images.properties = {"kept": 1}
            with self.subTest(values=values), self.assertRaises(kind):
                images.properties = values
            self.assertEqual(images.properties, {"kept": 1})

    def test_files(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "images.kvx"
            images = kelvaris.SharedImageSet(volumetric=True)
            images.properties = {"patient": "phantom"}
            for i in range(3):
                images.append(np.full((2, 3), i, "int16"), timestamp=i, spacing=(1, 2, 3), mask_value=-32768)
            kelvaris.save(path, images)
            read = kelvaris.load(str(path))
            self.assertEqual((len(read), read.timestamps, read.kind), (3, [0.0, 1.0, 2.0], "volumes"))
            self.assertEqual((read.properties, read[2].spacing), ({"patient": "phantom"}, (1.0, 2.0, 3.0)))
            self.assertEqual(read[1].mask_value, -32768)
            self.assertEqual([i.array().flat[0] for i in kelvaris.load(path, images=[2, 0])], [2, 0])
            with self.assertRaises(IndexError):
                kelvaris.load(path, images=[3])
            with self.assertRaisesRegex(FileNotFoundError, "absent"):
                kelvaris.load(path.with_name("absent.kvx"))
            path.write_bytes(b"no hdf5")
            with self.assertRaisesRegex(OSError, "images.kvx"):
                kelvaris.load(path)
            with self.assertRaises(OSError):
                kelvaris.save(folder + "/absent/x.kvx", images)
            picture = pathlib.Path(folder) / "x.png"
            with self.assertRaisesRegex(ValueError, "8-bit"):
                kelvaris.save_picture(picture, images)
            kelvaris.save_picture(picture, kelvaris.SharedImageSet([np.zeros((4, 5), "uint8")]))
            self.assertEqual(struct.unpack(">II", picture.read_bytes()[16:24]), (5, 4))
            np.save(folder + "/a.npy", np.arange(12, dtype="int16").reshape(3, 4))
            np.testing.assert_array_equal(kelvaris.read_samples(folder + "/a.npy"), np.arange(12).reshape(3, 4))
            np.save(folder + "/f.npy", np.asfortranarray(np.arange(12.0).reshape(3, 4)))
            np.testing.assert_array_equal(kelvaris.read_samples(folder + "/f.npy"), np.arange(12).reshape(3, 4))
            with self.assertRaises(OSError):
                kelvaris.read_samples(picture)
            path.write_text('<properties><param key="a">1</param></properties>')
            self.assertEqual(kelvaris.read_properties(path), {"a": 1})
            path.write_text('<properties><param key="a">1</param>')
            with self.assertRaisesRegex(ValueError, "images.kvx"):
                kelvaris.read_properties(path)


class StubTest(unittest.TestCase):
    def test_it_names_what_the_module_has(self):
        tree = ast.parse(pathlib.Path(os.environ["LIBRARIES"], "kelvaris.pyi").read_text())

        def names(body):
            return {n.name for n in body if isinstance(n, (ast.FunctionDef, ast.ClassDef))} | {
                n.target.id for n in body if isinstance(n, ast.AnnAssign)
            }

        def public(thing, implicit=()):
            return {n for n in vars(thing) if not n.startswith("_") or n in implicit}

        self.assertEqual(names(tree.body), public(kelvaris))
        special = {"__len__", "__getitem__", "__iter__", "__next__", "__enter__", "__exit__", "__array__"}
        for node in tree.body:
            if not isinstance(node, ast.ClassDef) or node.name in ("AlgorithmError", "Canceled"):
                continue
            with self.subTest(node.name):
                declared = names(node.body) - {"__init__"}
                inherited = set().union(*(public(base) for base in getattr(kelvaris, node.name).__mro__[1:-1]), set())
                made = public(getattr(kelvaris, node.name), special)
                if node.name == "SharedImageSet":
                    made.add("__iter__")  # by len and index
                self.assertEqual(declared | inherited, made | inherited)

    def test_everything_is_documented(self):
        for name, thing in vars(kelvaris).items():
            if not name.startswith("_"):
                self.assertTrue(inspect.getdoc(thing), name)


if __name__ == "__main__":
    unittest.main()
