-- SPDX-License-Identifier: Apache-2.0
-- How many signatures there are.
SELECT count(DISTINCT signature) AS signatures
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND (:signature = '' OR signature = :signature)
