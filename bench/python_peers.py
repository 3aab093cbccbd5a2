"""The same jobs as users of each Python library write them; bytes in, bytes out."""

import io

import cv2
import numpy as np
import peximage as pex
import pyvips
from PIL import Image


def best_within(encode, budget):
    """The file of the best of 100 qualities that fits, by bisection."""
    low, high, best = 1, 100, b""
    while low <= high:
        quality = (low + high) // 2
        data = encode(quality)
        if len(data) <= budget:
            low, best = quality + 1, data
        else:
            high = quality - 1
    return best


class PexImage:
    name = "peximage " + pex.__version__

    def shrink(self, data, side, budget):
        return pex.shrink(data, max_side=side, max_bytes=budget)

    def thumbnail(self, data, side):
        return pex.open(data).resize(max_side=side).encode(quality=0.85).data

    def size(self, path):
        return pex.open(path).size

    def round_trip(self, array):
        return np.asarray(pex.from_array(array))

    def reduce(self, array, side):
        return np.asarray(pex.from_array(array).resize(max_side=side))


class Pillow:
    name = "Pillow " + Image.__version__

    def _reduced(self, data, side):
        image = Image.open(io.BytesIO(data))
        image.thumbnail((side, side), Image.Resampling.LANCZOS)
        return image

    def _encoded(self, image, quality):
        file = io.BytesIO()
        image.save(file, "JPEG", quality=quality)
        return file.getvalue()

    def shrink(self, data, side, budget):
        image = self._reduced(data, side)
        return best_within(lambda quality: self._encoded(image, quality), budget)

    def thumbnail(self, data, side):
        return self._encoded(self._reduced(data, side), 85)

    def size(self, path):
        with Image.open(path) as image:
            return image.size

    def round_trip(self, array):
        return np.asarray(Image.fromarray(array))

    def reduce(self, array, side):
        height, width = array.shape[:2]
        image = Image.fromarray(array)
        return np.asarray(image.resize((side, height * side // width), Image.Resampling.LANCZOS))


class PyVips:
    name = f"pyvips {pyvips.__version__} (libvips {'.'.join(str(pyvips.version(i)) for i in range(3))})"

    def shrink(self, data, side, budget):
        image = pyvips.Image.thumbnail_buffer(data, side, height=side, size="down").copy_memory()
        return best_within(lambda quality: image.jpegsave_buffer(Q=quality), budget)

    def thumbnail(self, data, side):
        return pyvips.Image.thumbnail_buffer(data, side, height=side, size="down").jpegsave_buffer(Q=85)

    def size(self, path):
        image = pyvips.Image.new_from_file(path)
        return image.width, image.height

    def round_trip(self, array):
        return pyvips.Image.new_from_array(array).numpy()

    def reduce(self, array, side):
        return pyvips.Image.new_from_array(array).resize(side / array.shape[1]).numpy()


class OpenCV:
    name = "OpenCV " + cv2.__version__

    def _reduced(self, image, side):
        height, width = image.shape[:2]
        return cv2.resize(image, (side, height * side // width), interpolation=cv2.INTER_AREA)

    def _encoded(self, image, quality):
        return cv2.imencode(".jpg", image, [cv2.IMWRITE_JPEG_QUALITY, quality])[1].tobytes()

    def shrink(self, data, side, budget):
        image = self._reduced(cv2.imdecode(np.frombuffer(data, np.uint8), cv2.IMREAD_COLOR), side)
        return best_within(lambda quality: self._encoded(image, quality), budget)

    def thumbnail(self, data, side):
        image = cv2.imdecode(np.frombuffer(data, np.uint8), cv2.IMREAD_REDUCED_COLOR_8)
        return self._encoded(self._reduced(image, side), 85)

    def reduce(self, array, side):
        return self._reduced(array, side)
