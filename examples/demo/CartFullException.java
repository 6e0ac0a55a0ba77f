// Thrown by the cart when it has no room left for another item.
package demo;

public class CartFullException extends RuntimeException {
    public CartFullException(String message) {
        super(message);
    }
}
