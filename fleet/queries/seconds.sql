-- SPDX-License-Identifier: Apache-2.0
-- The seconds to a cure that stand at a place of their order: with half the count, the median.
SELECT seconds_to_cure
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND (:signature = '' OR signature = :signature)
    AND cured_by = :cured_by AND outcome = 'cured' AND seconds_to_cure >= 0
ORDER BY seconds_to_cure
LIMIT :place, 1
